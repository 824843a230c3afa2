#include "kel/wildcard.h"

#include <string>

#include "kel/kelascii.h"
#include "kel/stop.h"
#include "kel/textsearch.h"

namespace kel {
namespace {

constexpr size_t kShortPattern = 64;
constexpr uint64_t kBytesPerLook = uint64_t{1} << 20;

bool SameByte(char value, char pattern, bool caseSensitive) {
  return pattern == '?' || value == pattern ||
         (!caseSensitive && ToLower(value) == ToLower(pattern));
}

bool MatchShort(std::string_view value, std::string_view pattern, bool caseSensitive) {
  size_t v = 0;
  size_t p = 0;
  size_t star = std::string_view::npos;  // where the last "*" stands, and the value when it was met
  size_t resume = 0;
  StopPoll poll(kBytesPerLook / kShortPattern);
  while (v < value.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      resume = v;
    } else if (p < pattern.size() && SameByte(value[v], pattern[p], caseSensitive)) {
      ++v;
      ++p;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      v = ++resume;
      poll.Step();
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

bool MatchesAt(std::string_view value, size_t at, std::string_view piece) {
  if (piece.size() > value.size() - at) return false;
  for (size_t i = 0; i < piece.size(); ++i) {
    if (!SameByte(value[at + i], piece[i], true)) return false;
  }
  return true;
}

size_t FindPiece(std::string_view value, size_t from, std::string_view piece) {
  if (piece.find('?') == std::string_view::npos) return FindText(value, piece, true, from);
  StopPoll poll(kBytesPerLook);
  for (size_t at = from; piece.size() <= value.size() - at; ++at) {
    poll.Step(piece.size());
    if (MatchesAt(value, at, piece)) return at;
  }
  return kTextNotFound;
}

/// The pieces between stars: the first at the start, the last at the end, each other one at the
/// first place where it fits.
bool MatchPieces(std::string_view value, std::string_view pattern) {
  const size_t firstStar = pattern.find('*');
  if (firstStar == std::string_view::npos) {
    return value.size() == pattern.size() && MatchesAt(value, 0, pattern);
  }
  const size_t lastStar = pattern.rfind('*');
  const std::string_view tail = pattern.substr(lastStar + 1);
  if (!MatchesAt(value, 0, pattern.substr(0, firstStar))) return false;
  if (value.size() - firstStar < tail.size()) return false;
  const std::string_view middle = value.substr(0, value.size() - tail.size());
  size_t at = firstStar;
  for (size_t p = firstStar; p < lastStar;) {
    const size_t next = pattern.find('*', p + 1);
    const std::string_view piece = pattern.substr(p + 1, next - p - 1);
    at = FindPiece(middle, at, piece);
    if (at == kTextNotFound) return false;
    at += piece.size();
    p = next;
  }
  return MatchesAt(value, value.size() - tail.size(), tail);
}

}  // namespace

bool WildcardMatch(std::string_view value, std::string_view pattern, bool caseSensitive) {
  if (pattern.size() <= kShortPattern) return MatchShort(value, pattern, caseSensitive);
  if (caseSensitive) return MatchPieces(value, pattern);
  return MatchPieces(Lowered(value), Lowered(pattern));
}

}  // namespace kel
