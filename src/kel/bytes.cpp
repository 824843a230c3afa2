#include "kel/bytes.h"

#include <cstddef>

namespace kel {
namespace {

constexpr uint32_t kReplacement = 0xFFFD;

bool IsSurrogate(uint32_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

}  // namespace

void AppendUtf8(std::string& out, uint32_t codePoint) {
  if (codePoint > 0x10FFFF || IsSurrogate(codePoint)) codePoint = kReplacement;
  const auto put = [&out](uint32_t byte) { out += static_cast<char>(byte); };
  const auto tail = [&](int shift) { put(0x80 | ((codePoint >> shift) & 0x3F)); };
  if (codePoint < 0x80) {
    put(codePoint);
  } else if (codePoint < 0x800) {
    put(0xC0 | (codePoint >> 6));
    tail(0);
  } else if (codePoint < 0x10000) {
    put(0xE0 | (codePoint >> 12));
    tail(6);
    tail(0);
  } else {
    put(0xF0 | (codePoint >> 18));
    tail(12);
    tail(6);
    tail(0);
  }
}

std::string Utf16ToUtf8(std::string_view bytes, bool bigEndian) {
  const size_t units = bytes.size() / 2;
  const auto unitAt = [&](size_t index) {
    const auto first = static_cast<unsigned char>(bytes[2 * index]);
    const auto second = static_cast<unsigned char>(bytes[2 * index + 1]);
    return static_cast<uint32_t>(bigEndian ? first << 8 | second : second << 8 | first);
  };
  std::string out;
  out.reserve(units);
  for (size_t i = 0; i < units; ++i) {
    uint32_t unit = unitAt(i);
    if (unit >= 0xD800 && unit < 0xDC00 && i + 1 < units) {
      const uint32_t low = unitAt(i + 1);
      if (low >= 0xDC00 && low < 0xE000) {
        unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
        ++i;
      }
    }
    AppendUtf8(out, unit);
  }
  if (bytes.size() % 2 != 0) AppendUtf8(out, kReplacement);
  return out;
}

std::string DecodeScriptText(std::string raw) {
  const std::string_view view = raw;
  if (view.starts_with("\xEF\xBB\xBF")) {
    raw.erase(0, 3);
    return raw;
  }
  if (view.starts_with("\xFF\xFE")) return Utf16ToUtf8(view.substr(2), false);
  if (view.starts_with("\xFE\xFF")) return Utf16ToUtf8(view.substr(2), true);
  return raw;
}

}  // namespace kel
