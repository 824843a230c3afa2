#pragma once

#include <cstddef>
#include <string_view>

#include "kel/export.h"
#include "values/cell.h"

namespace tamber {

/// A counted string: length bytes and a NUL, with at least 20 spare bytes behind.
struct StrBuf : RefObject {
  static constexpr uint8_t kSecret = 1;  ///< wiped before its memory goes back
  static constexpr uint64_t kMaxLength = 0xFFFFFFE0u;
  static constexpr uint32_t kSpare = 20;

  uint32_t length;
  uint32_t capacity;  ///< bytes that fit before the NUL

  char* Data() { return reinterpret_cast<char*>(this + 1); }
  const char* Data() const { return reinterpret_cast<const char*>(this + 1); }
  std::string_view View() const { return {Data(), length}; }

  /// A new string of `length` bytes that the caller fills in; the NUL is set. One reference.
  /// Throws std::bad_alloc when the length is beyond kMaxLength or there is no memory.
  static StrBuf* NewRaw(uint64_t length);
  TAMBER_API static StrBuf* New(std::string_view text);
  /// The joined string; null when both are empty.
  static StrBuf* Join(std::string_view left, std::string_view right);
  /// Of one that nobody refers to any more.
  static void Destroy(StrBuf* text);

 private:
  friend void AppendText(StrBuf*& slot, std::string_view tail);
  static StrBuf* WithCapacity(uint64_t length, uint64_t capacity);
  static StrBuf* Extended(StrBuf* text, std::string_view tail, uint64_t length);
  static StrBuf* Enlarged(StrBuf* text, uint64_t capacity);
  StrBuf(uint32_t len, uint32_t cap) : RefObject(Type::String), length(len), capacity(cap) {}
};

inline std::string_view TextOf(const StrBuf* text) {
  return text ? text->View() : std::string_view("", 0);
}

/// Appends to the string in place when nobody else holds it, else to a copy; amortised linear.
/// Takes the reference in `slot` and leaves the new one there. `tail` may point into the string.
/// Throws std::bad_alloc and leaves the string as it was.
void AppendText(StrBuf*& slot, std::string_view tail);

}  // namespace tamber
