#pragma once

#include <cstdint>
#include <string_view>

#include "kel/export.h"
#include "values/shared.h"

namespace tamber {

/// An immutable, shared spelling: the name of a variable, a member, a type.
///
/// Copies share one buffer, also in other threads; the empty name owns nothing. Names compare
/// without regard to ASCII case, and keep the spelling they were made with.
class TAMBER_API Name {
 public:
  Name() = default;
  explicit Name(std::string_view text);
  Name(const Name& other) : rep_(other.rep_) {
    if (rep_ != nullptr) Retain();
  }
  Name(Name&& other) noexcept : rep_(other.rep_) { other.rep_ = nullptr; }
  Name& operator=(const Name& other) {
    Name copy(other);
    return *this = static_cast<Name&&>(copy);
  }
  Name& operator=(Name&& other) noexcept {
    const Rep* mine = rep_;
    rep_ = other.rep_;
    other.rep_ = mine;
    return *this;
  }
  ~Name() {
    if (rep_ != nullptr) Release();
  }

  std::string_view View() const {
    return rep_ ? std::string_view(rep_->Bytes(), rep_->length) : "";
  }
  bool IsEmpty() const { return rep_ == nullptr; }
  /// A hash that ignores ASCII case; equal names have equal hashes.
  uint32_t Hash() const { return rep_ ? rep_->hash : HashOf({}); }
  static uint32_t HashOf(std::string_view text);

  bool Equals(const Name& other) const;
  bool Equals(std::string_view text) const;

 private:
  struct TAMBER_LOCAL Rep final : Shared<Rep> {
    explicit Rep(std::string_view text);
    const char* Bytes() const { return reinterpret_cast<const char*>(this + 1); }
    static void Destroy(const SharedCount* object);
    /// Without the size, which is not that of the class.
    static void operator delete(void* memory);

    uint32_t hash;
    uint32_t length;  ///< of the spelling, which follows and ends with a NUL byte
  };
  void Retain() const;
  void Release() const;

  const Rep* rep_ = nullptr;
};

}  // namespace tamber
