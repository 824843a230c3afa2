#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

/// Work on strings of any length that a request to stop ends: it looks as kel/stop.h says.
namespace kel {

/// A copy.
std::string CopyOf(std::string_view text);
/// All of the tail, or as much of it as was there when the work was left. The tail is not a part of
/// the string.
void Append(std::string& to, std::string_view tail);
/// With NULs behind what there was.
void Resize(std::string& text, size_t size);

/// A set of bytes.
class ByteSet {
 public:
  explicit ByteSet(std::string_view bytes);
  bool Has(char byte) const { return has_[static_cast<unsigned char>(byte)]; }
  /// Position of the first byte at or after `from` that is in the set; the length where none is.
  size_t FindIn(std::string_view text, size_t from = 0) const { return Find(text, from, true); }
  /// The same of the first one that is not.
  size_t FindOtherIn(std::string_view text, size_t from = 0) const {
    return Find(text, from, false);
  }

 private:
  size_t Find(std::string_view text, size_t from, bool wanted) const;
  std::array<bool, 256> has_{};
};

}  // namespace kel
