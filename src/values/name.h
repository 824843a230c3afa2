#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "kel/export.h"

namespace tamber {

/// An immutable, shared spelling: the name of a variable, a member, a type.
///
/// Copies share one buffer (the count is atomic, so names may cross threads); the empty name owns
/// nothing. Names compare without regard to ASCII case, and keep the spelling they were made with.
class TAMBER_API Name {
 public:
  Name() = default;
  explicit Name(std::string_view text);
  Name(const Name& other) : rep_(other.rep_) { Retain(); }
  Name(Name&& other) noexcept : rep_(other.rep_) { other.rep_ = nullptr; }
  Name& operator=(const Name& other) {
    Name copy(other);
    return *this = static_cast<Name&&>(copy);
  }
  Name& operator=(Name&& other) noexcept {
    Rep* mine = rep_;
    rep_ = other.rep_;
    other.rep_ = mine;
    return *this;
  }
  ~Name() { Release(); }

  std::string_view View() const { return rep_ ? std::string_view(Text(rep_), rep_->length) : ""; }
  bool IsEmpty() const { return rep_ == nullptr; }
  /// A hash that ignores ASCII case; equal names have equal hashes.
  uint32_t Hash() const { return rep_ ? rep_->hash : HashOf({}); }
  static uint32_t HashOf(std::string_view text);

  bool Equals(const Name& other) const;
  bool Equals(std::string_view text) const;

 private:
  struct Rep {
    std::atomic<uint32_t> refs;
    uint32_t hash;
    uint32_t length;
  };
  static char* Text(Rep* rep) { return reinterpret_cast<char*>(rep + 1); }
  void Retain() const {
    if (rep_) rep_->refs.fetch_add(1, std::memory_order_relaxed);
  }
  void Release();

  Rep* rep_ = nullptr;
};

}  // namespace tamber
