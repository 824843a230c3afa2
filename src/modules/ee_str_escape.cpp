#include <algorithm>
#include <array>
#include <charconv>

#include "context/tambctxt.h"
#include "kel/environment.h"
#include "kel/escape.h"
#include "kel/kelascii.h"
#include "kel/utf8.h"
#include "modules/ee_str_bodies.h"

namespace tamber::strings {
namespace {

constexpr uint64_t kPiecesPerLook = 16384;

using ByteSet = std::array<bool, 256>;

constexpr ByteSet MakeSet(std::string_view others) {
  ByteSet set{};
  for (unsigned c = 0; c < 128; ++c) set[c] = kel::IsAlnum(static_cast<char>(c));
  for (const char c : others) set[static_cast<unsigned char>(c)] = true;
  return set;
}

constexpr ByteSet MakePrintable() {
  ByteSet set{};
  for (unsigned c = 32; c < 127; ++c) set[c] = c != '\\';
  return set;
}

constexpr ByteSet kHtmlKept = MakeSet("&#+-_");
constexpr ByteSet kUrlKept = MakeSet("%");
constexpr ByteSet kAsciiKept = MakePrintable();

/// Every byte that is not kept becomes the prefix and two hexadecimal digits.
Text EscapeBytes(std::string_view value, const ByteSet& kept, std::string_view prefix) {
  uint64_t escaped = 0;
  kel::ForSteps(0, value.size(), kel::kBytesPerStep, [&](uint64_t at, uint64_t end) {
    for (; at < end; ++at) escaped += kept[static_cast<unsigned char>(value[at])] ? 0 : 1;
    return true;
  });
  return MakeText(value.size() + escaped * (prefix.size() + 1), [&](char* out) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    kel::ForSteps(0, value.size(), kel::kBytesPerStep, [&](uint64_t at, uint64_t end) {
      for (const char c : value.substr(at, end - at)) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (kept[byte]) {
          *out++ = c;
          continue;
        }
        out = std::copy(prefix.begin(), prefix.end(), out);
        *out++ = kDigits[byte >> 4];
        *out++ = kDigits[byte & 15];
      }
      return true;
    });
  });
}

void AppendEntity(TextBuilder& out, char byte) {
  std::array<char, 8> entity = {'&', '#'};
  char* end = std::to_chars(entity.data() + 2, entity.data() + entity.size(),
                            static_cast<unsigned>(static_cast<unsigned char>(byte)))
                  .ptr;
  *end++ = ';';
  out.Append(std::string_view(entity.data(), end));
}

constexpr bool IsNameByte(char c) { return kel::IsAlnum(c) || c == '_'; }

std::string_view NameAt(std::string_view text, size_t at) {
  if (at >= text.size() || kel::IsDigit(text[at])) return {};
  size_t end = at;
  kel::StopPoll poll(65536);
  for (; end < text.size() && IsNameByte(text[end]); ++end) poll.Step();
  return text.substr(at, end - at);
}

/// A variable's mention at the start of a text: its name and how long the whole mention is.
struct Mention {
  std::string_view name;
  size_t length = 0;
};

Mention MentionAt(std::string_view text) {
  const bool braced = text.size() > 1 && text[0] == '$' && text[1] == '{';
  const size_t open = braced ? 2 : 1;
  const std::string_view name = NameAt(text, open);
  if (name.empty()) return {};
  if (text[0] == '$' && !braced) return {name, open + name.size()};
  const size_t close = open + name.size();
  const char wanted = braced ? '}' : '%';
  return close < text.size() && text[close] == wanted ? Mention{name, close + 1} : Mention{};
}

}  // namespace

Text ToAscii(std::string_view value) { return EscapeBytes(value, kAsciiKept, "\\x"); }

Text ToBinary(std::string_view value) {
  if (value.empty()) return {};
  TextBuilder out(value.size());
  kel::StopPoll poll(kPiecesPerLook);
  size_t at = 0;
  while (at < value.size()) {
    poll.Step();
    const std::string_view part = value.substr(at, kel::kBytesPerStep);
    const size_t slash = at + std::min(part.find('\\'), part.size());
    out.Append(value.substr(at, slash - at));
    if (slash == at + part.size()) {
      kel::CheckStop();
      at = slash;
      continue;
    }
    at = slash + 1;
    if (at == value.size()) {
      out.Append('\\');
    } else {
      const kel::Escape escape = kel::DecodeEscape(value.substr(at, 3));
      out.Append(escape.byte);
      at += escape.length;
    }
  }
  return out.Finish();
}

Text EscapeHtml(std::string_view value) {
  if (value.empty()) return {};
  TextBuilder out(value.size() + value.size() / 4);
  kel::StopPoll poll(kPiecesPerLook);
  size_t at = 0;
  while (at < value.size()) {
    poll.Step();
    const size_t begin = at;
    const size_t most = std::min(value.size(), begin + kel::kBytesPerStep);
    while (at < most && kHtmlKept[static_cast<unsigned char>(value[at])]) ++at;
    if (at - begin == kel::kBytesPerStep) kel::CheckStop();
    // A character of several bytes goes along with the kept ones.
    const size_t length = at < most ? kel::CharacterLength(value, at) : 0;
    if (length > 1) at += length;
    out.Append(value.substr(begin, at - begin));
    if (length == 1) AppendEntity(out, value[at++]);
  }
  return out.Finish();
}

Text EscapeHtmlUrl(std::string_view value) { return EscapeBytes(value, kUrlKept, "%"); }

Text ExpandEnvironment(Call& call, std::string_view path) {
  if (path.empty()) return {};
  const bool visible = call.Context().GetFilePolicy().ShowsEnvironment();
  TextBuilder out(path.size());
  kel::StopPoll poll(kPiecesPerLook);
  size_t at = 0;
  while (at < path.size()) {
    poll.Step();
    const std::string_view part = path.substr(at, kel::kBytesPerStep);
    const size_t sign = at + std::min(part.find_first_of("%$"), part.size());
    out.Append(path.substr(at, sign - at));
    if (sign == at + part.size()) {
      kel::CheckStop();
      at = sign;
      continue;
    }
    const Mention mention = MentionAt(path.substr(sign));
    const auto value = visible ? kel::GetEnvironment(mention.name) : std::nullopt;
    if (value) {
      out.Append(*value);
      at = sign + mention.length;
    } else {
      // The sign alone goes: the "%" that closes an unknown name may open the next one.
      out.Append(path[sign]);
      at = sign + 1;
    }
  }
  return out.Finish();
}

}  // namespace tamber::strings
