#include "values/name.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "kel/kelascii.h"

namespace tamber {

Name::Name(std::string_view text) {
  if (text.empty()) return;
  void* memory = std::malloc(sizeof(Rep) + text.size() + 1);
  if (memory == nullptr) throw std::bad_alloc();
  rep_ = new (memory) Rep{1, HashOf(text), static_cast<uint32_t>(text.size())};
  std::memcpy(Text(rep_), text.data(), text.size());
  Text(rep_)[text.size()] = '\0';
}

uint32_t Name::HashOf(std::string_view text) {
  uint32_t hash = 2166136261u;  // FNV-1a over the folded bytes
  for (char c : text) hash = (hash ^ static_cast<uint8_t>(kel::ToLower(c))) * 16777619u;
  return hash;
}

bool Name::Equals(const Name& other) const {
  if (rep_ == other.rep_) return true;
  return Hash() == other.Hash() && kel::EqualsNoCase(View(), other.View());
}

bool Name::Equals(std::string_view text) const { return kel::EqualsNoCase(View(), text); }

void Name::Release() {
  if (rep_ != nullptr && rep_->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    rep_->~Rep();
    std::free(rep_);
  }
  rep_ = nullptr;
}

}  // namespace tamber
