#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Byte-order marks and the encodings that they announce.
namespace kel {

/// Appends one code point; a surrogate or a value above 0x10FFFF becomes U+FFFD.
void AppendUtf8(std::string& out, uint32_t codePoint);

/// Turns UTF-16 bytes without a mark into UTF-8. A lone surrogate and an odd last byte become
/// U+FFFD.
std::string Utf16ToUtf8(std::string_view bytes, bool bigEndian);

/// The text of a script or INI file as it is worked on: a UTF-8 mark is dropped, a text with a
/// UTF-16 mark becomes UTF-8, anything else stays byte for byte.
std::string DecodeScriptText(std::string raw);

}  // namespace kel
