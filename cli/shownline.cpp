#include "shownline.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace {

/// Code points from `first` to `last` that a terminal shows `width` columns wide.
struct WidthRange {
  uint32_t first, last, width;
};
constexpr WidthRange kWidths[] = {
    {0x300, 0x36F, 0},   {0x1100, 0x115F, 2}, {0x200B, 0x200F, 0},   {0x2E80, 0xA4CF, 2},
    {0xAC00, 0xD7A3, 2}, {0xF900, 0xFAFF, 2}, {0xFE00, 0xFE0F, 0},   {0xFE30, 0xFE6F, 2},
    {0xFF00, 0xFF60, 2}, {0xFFE0, 0xFFE6, 2}, {0x1F300, 0x1FAFF, 2}, {0x20000, 0x3FFFD, 2},
};

/// C0 and C1 codes, and those that turn the direction of writing.
bool ControlsTerminals(uint32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || (code >= 0x202A && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
}

uint32_t WidthOf(uint32_t code) {
  for (const WidthRange& range : kWidths) {
    if (code >= range.first && code <= range.last) return range.width;
  }
  return 1;
}

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

/// One letter of a text.
struct Letter {
  uint32_t code;
  size_t length;  ///< in bytes
};

Letter LetterAt(std::string_view text, size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  uint32_t code = lead < 0xC0   ? lead
                  : lead < 0xE0 ? lead & 0x1F
                  : lead < 0xF0 ? lead & 0xF
                                : lead & 7;
  size_t end = at + 1;
  const size_t most = lead < 0xC0 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
  for (; end < text.size() && end - at <= most && IsContinuation(text[end]); ++end)
    code = code << 6 | (static_cast<unsigned char>(text[end]) & 0x3F);
  return {code, end - at};
}

std::string Escaped(std::string_view bytes) {
  if (bytes == "\t") return "\\t";
  if (bytes == "\r") return "\\r";
  if (bytes == "\n") return "\\n";
  std::string escaped;
  for (const char byte : bytes) {
    char code[5];
    std::snprintf(code, sizeof code, "\\x%02x",
                  static_cast<unsigned>(static_cast<unsigned char>(byte)));
    escaped += code;
  }
  return escaped;
}

/// A letter as it is shown.
struct Shown {
  std::string text;
  size_t width;
  bool isPlace;  ///< the place begins here
};

/// The letters from `begin` to `end`. A tab stays one where nothing is cut.
std::vector<Shown> Letters(std::string_view line, size_t begin, size_t end, size_t place) {
  std::vector<Shown> letters;
  bool isMarked = false;
  for (size_t at = begin; at < end;) {
    const Letter letter = LetterAt(line, at);
    const std::string_view bytes = line.substr(at, letter.length);
    at += letter.length;
    const bool isPlace = !isMarked && at > place;
    isMarked |= isPlace;
    if (letter.code == '\t') {
      letters.push_back({"\t", 1, isPlace});
    } else if (ControlsTerminals(letter.code)) {
      const std::string escaped = Escaped(bytes);
      letters.push_back({escaped, escaped.size(), isPlace});
    } else {
      letters.push_back({std::string(bytes), WidthOf(letter.code), isPlace});
    }
  }
  return letters;
}

}  // namespace

std::string Printable(std::string_view text, bool keepsTabs) {
  std::string printable;
  for (size_t at = 0; at < text.size();) {
    const Letter letter = LetterAt(text, at);
    const std::string_view bytes = text.substr(at, letter.length);
    const bool isKept = !ControlsTerminals(letter.code) || (keepsTabs && letter.code == '\t');
    printable += isKept ? std::string(bytes) : Escaped(bytes);
    at += letter.length;
  }
  return printable;
}

ShownLine ShowLine(std::string_view line, size_t column, size_t width) {
  constexpr std::string_view kCut = "...";
  const size_t place = std::min(column == 0 ? 0 : column - 1, line.size());
  // Enough bytes for the width on both sides, however they are to be shown.
  const size_t reach = width * 8;
  size_t begin = place > reach ? place - reach : 0;
  while (begin > 0 && begin < place && IsContinuation(line[begin])) ++begin;
  size_t end = line.size() - place > reach ? place + reach : line.size();
  while (end < line.size() && IsContinuation(line[end])) ++end;
  std::vector<Shown> letters = Letters(line, begin, end, place);

  size_t whole = 0;
  for (const Shown& letter : letters) whole += letter.width;
  size_t first = 0;
  size_t last = letters.size();
  bool isCutBefore = begin > 0;
  bool isCutBehind = end < line.size();
  if (whole > width || isCutBefore || isCutBehind) {
    const auto marked = std::find_if(letters.begin(), letters.end(),
                                     [](const Shown& letter) { return letter.isPlace; });
    first = last = static_cast<size_t>(marked - letters.begin());
    // The place has a third of the width before it, or more when nothing more follows.
    const size_t room = width - std::min(width, 2 * kCut.size());
    size_t used = 0;
    const auto growBack = [&](size_t most) {
      while (first > 0 && used + letters[first - 1].width <= most) used += letters[--first].width;
    };
    growBack(room / 3);
    while (last < letters.size() && used + letters[last].width <= room)
      used += letters[last++].width;
    growBack(room);
    isCutBefore |= first > 0;
    isCutBehind |= last < letters.size();
  }

  ShownLine shown;
  if (isCutBefore) {
    shown.text = kCut;
    shown.indent.assign(kCut.size(), ' ');
  }
  bool isBefore = true;
  for (size_t i = first; i < last; ++i) {
    const Shown& letter = letters[i];
    isBefore = isBefore && !letter.isPlace;
    shown.text += letter.text;
    if (!isBefore) continue;
    shown.indent.append(letter.width, letter.text == "\t" ? '\t' : ' ');
  }
  if (isCutBehind) shown.text += kCut;
  return shown;
}
