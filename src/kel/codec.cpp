#include "kel/codec.h"

#include <nettle/base16.h>
#include <nettle/base64.h>

#include <algorithm>

#include "kel/bytes.h"
#include "kel/kelascii.h"
#include "kel/lazylibrary.h"
#include "kel/stop.h"

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

/// Whole groups of Base64.
constexpr uint64_t kBytesPerLook = 3 * (uint64_t{1} << 18);

constexpr bool IsHighSurrogate(uint16_t unit) { return (unit & 0xFC00) == 0xD800; }
constexpr bool IsLowSurrogate(uint16_t unit) { return (unit & 0xFC00) == 0xDC00; }

}  // namespace

void EncodeHex(std::string_view bytes, char* out) {
  ForSteps(0, bytes.size(), kBytesPerLook, [&](uint64_t at, uint64_t end) {
    base16_encode_update(out + at * 2, end - at, Bytes(bytes) + at);
    return true;
  });
}

std::string EncodeHex(std::string_view bytes) {
  std::string text(bytes.size() * 2, '\0');
  EncodeHex(bytes, text.data());
  return text;
}

bool DecodeHex(std::string_view text, std::string& bytes) {
  bytes.assign(text.size() / 2, '\0');
  size_t at = 0;
  StopPoll poll(kBytesPerLook);
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    poll.Step();
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
  ForSteps(0, bytes.size(), kBytesPerLook, [&](uint64_t at, uint64_t end) {
    base64_encode_raw(out + at / 3 * 4, end - at, Bytes(bytes) + at);
    return true;
  });
}

std::string EncodeBase64(std::string_view bytes) {
  std::string text(Base64Length(bytes.size()), '\0');
  EncodeBase64(bytes, text.data());
  return text;
}

bool DecodeBase64(std::string_view text, std::string& bytes) {
  // A single character of a group is no byte, even when the bits that are left over are 0.
  const size_t last = text.find_last_not_of(" \t\r\n\v\f=");
  const size_t padding = last == std::string_view::npos ? 0 : last + 1;
  if (std::count(text.begin() + static_cast<ptrdiff_t>(padding), text.end(), '=') > 2) {
    bytes.clear();
    return false;
  }
  base64_decode_ctx context;
  base64_decode_init(&context);
  bytes.assign(BASE64_DECODE_LENGTH(text.size()), '\0');
  size_t used = 0;
  bool valid = true;
  ForSteps(0, text.size(), kBytesPerLook, [&](uint64_t at, uint64_t end) {
    size_t length = bytes.size() - used;
    valid = base64_decode_update(&context, &length, reinterpret_cast<uint8_t*>(bytes.data()) + used,
                                 end - at, text.data() + at) != 0;
    used += valid ? length : 0;
    return valid;
  });
  valid = valid && base64_decode_final(&context) != 0;
  bytes.resize(valid ? used : 0);
  return valid;
}

std::string Utf16UnitsToUtf8(std::span<const uint16_t> units) {
  std::string text;
  text.reserve(units.size());
  StopPoll poll(kBytesPerLook);
  for (size_t i = 0; i < units.size(); ++i) {
    poll.Step();
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
