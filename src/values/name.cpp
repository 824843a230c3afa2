#include "values/name.h"

#include <memory>
#include <new>

#include "kel/kelascii.h"
#include "kel/stop.h"

namespace tamber {

Name::Rep::Rep(std::string_view text)
    : hash(HashOf(text)), length(static_cast<uint32_t>(text.size())) {
  char* const bytes = const_cast<char*>(Bytes());
  kel::CopyInSteps(bytes, text.data(), text.size());
  bytes[text.size()] = '\0';
}

void Name::Rep::Destroy(const SharedCount* object) { delete static_cast<const Rep*>(object); }
void Name::Rep::operator delete(void* memory) { ::operator delete(memory); }

Name::Name(std::string_view text) {
  if (text.empty()) return;
  struct FreeMemory {
    void operator()(void* memory) const { ::operator delete(memory); }
  };
  std::unique_ptr<void, FreeMemory> memory(::operator new(sizeof(Rep) + text.size() + 1));
  rep_ = ::new (memory.get()) Rep(text);
  memory.release();
}

/// Whatever the script looks up as a name is hashed, megabytes of text as well: those by how they
/// begin and how long they are.
uint32_t Name::HashOf(std::string_view text) {
  constexpr size_t kHashed = 1024;
  uint32_t hash = 2166136261u;  // FNV-1a over the folded bytes
  if (text.size() > kHashed) [[unlikely]] {
    hash ^= static_cast<uint32_t>(text.size());
    text = text.substr(0, kHashed);
  }
  for (char c : text) hash = (hash ^ static_cast<uint8_t>(kel::ToLower(c))) * 16777619u;
  return hash;
}

bool Name::Equals(const Name& other) const {
  if (rep_ == other.rep_) return true;
  return Hash() == other.Hash() && kel::EqualsNoCase(View(), other.View());
}

bool Name::Equals(std::string_view text) const { return kel::EqualsNoCase(View(), text); }

void Name::Retain() const { rep_->Retain(); }
void Name::Release() const { rep_->Release(); }

}  // namespace tamber
