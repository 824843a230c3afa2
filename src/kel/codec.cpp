#include "kel/codec.h"

#include <nettle/base16.h>
#include <nettle/base64.h>

#include "kel/bytes.h"
#include "kel/kelascii.h"
#include "kel/lazylibrary.h"

namespace kel {
namespace {

LazyLibrary nettle(KEL_SONAME_NETTLE);
KEL_LAZY(nettle, base16_encode_update);
KEL_LAZY(nettle, base64_encode_raw);
KEL_LAZY(nettle, base64_decode_init);
KEL_LAZY(nettle, base64_decode_update);
KEL_LAZY(nettle, base64_decode_final);

const uint8_t* Bytes(std::string_view text) {
  static const uint8_t empty = 0;
  return text.empty() ? &empty : reinterpret_cast<const uint8_t*>(text.data());
}

constexpr bool IsHighSurrogate(uint16_t unit) { return (unit & 0xFC00) == 0xD800; }
constexpr bool IsLowSurrogate(uint16_t unit) { return (unit & 0xFC00) == 0xDC00; }

}  // namespace

void EncodeHex(std::string_view bytes, char* out) {
  base16_encode_update(out, bytes.size(), Bytes(bytes));
}

std::string EncodeHex(std::string_view bytes) {
  std::string text(bytes.size() * 2, '\0');
  EncodeHex(bytes, text.data());
  return text;
}

bool DecodeHex(std::string_view text, std::string& bytes) {
  bytes.assign(text.size() / 2, '\0');
  size_t at = 0;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    const int high = HexValue(text[i]);
    const int low = HexValue(text[i + 1]);
    if (high < 0 || low < 0) break;
    bytes[at++] = static_cast<char>(high * 16 + low);
  }
  if (at * 2 == text.size()) return true;
  bytes.clear();
  return false;
}

void EncodeBase64(std::string_view bytes, char* out) {
  base64_encode_raw(out, bytes.size(), Bytes(bytes));
}

std::string EncodeBase64(std::string_view bytes) {
  std::string text(Base64Length(bytes.size()), '\0');
  EncodeBase64(bytes, text.data());
  return text;
}

bool DecodeBase64(std::string_view text, std::string& bytes) {
  base64_decode_ctx context;
  base64_decode_init(&context);
  bytes.assign(BASE64_DECODE_LENGTH(text.size()), '\0');
  size_t length = bytes.size();
  const bool valid =
      base64_decode_update(&context, &length, reinterpret_cast<uint8_t*>(bytes.data()), text.size(),
                           text.data()) != 0 &&
      base64_decode_final(&context) != 0;
  bytes.resize(valid ? length : 0);
  return valid;
}

std::string Utf16UnitsToUtf8(std::span<const uint16_t> units) {
  std::string text;
  text.reserve(units.size());
  for (size_t i = 0; i < units.size(); ++i) {
    const uint16_t unit = units[i];
    if (IsHighSurrogate(unit) && i + 1 < units.size() && IsLowSurrogate(units[i + 1])) {
      const uint32_t high = static_cast<uint32_t>(unit & 0x3FF) << 10;
      AppendUtf8(text, 0x10000 + (high | (units[++i] & 0x3FFU)));
    } else if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) {
      text += '?';
    } else {
      AppendUtf8(text, unit);
    }
  }
  return text;
}

}  // namespace kel
