#include "kel/textsearch.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "kel/kelascii.h"
#include "kel/stop.h"

namespace kel {
namespace {

/// Up to this length a part is compared at every place; longer ones are worth folded copies.
constexpr size_t kShortPart = 32;

/// The system's search, which is linear whatever the texts repeat.
size_t FindBytes(std::string_view text, std::string_view part) {
  const void* hit = memmem(text.data(), text.size(), part.data(), part.size());
  return hit == nullptr ? kTextNotFound
                        : static_cast<size_t>(static_cast<const char*>(hit) - text.data());
}

size_t FindShortFolded(std::string_view text, std::string_view part) {
  const char first = ToLower(part.front());
  const size_t last = text.size() - part.size();
  for (size_t at = 0; at <= last; ++at) {
    if (ToLower(text[at]) == first && EqualsNoCase(text.substr(at, part.size()), part)) return at;
  }
  return kTextNotFound;
}

/// Searches a large text piece by piece, as overlapping as the part is long.
template <class Search>
size_t FindInPieces(std::string_view text, size_t partSize, size_t from, Search&& search) {
  const size_t piece = std::max(kBytesPerStep, partSize * 4);
  for (; text.size() - from >= partSize; from += piece) {
    const std::string_view within = text.substr(from, piece + partSize - 1);
    const size_t hit = search(within);
    if (hit != kTextNotFound) return from + hit;
    if (from + within.size() == text.size()) break;
    CheckStop();
  }
  return kTextNotFound;
}

}  // namespace

size_t FindText(std::string_view text, std::string_view part, bool caseSensitive, size_t from) {
  if (from > text.size() || part.size() > text.size() - from) return kTextNotFound;
  if (part.empty()) return from;
  if (caseSensitive) {
    return FindInPieces(text, part.size(), from,
                        [&](std::string_view piece) { return FindBytes(piece, part); });
  }
  if (part.size() <= kShortPart) {
    return FindInPieces(text, part.size(), from,
                        [&](std::string_view piece) { return FindShortFolded(piece, part); });
  }
  const std::string folded = Lowered(part);
  return FindInPieces(text, part.size(), from,
                      [&](std::string_view piece) { return FindBytes(Lowered(piece), folded); });
}

}  // namespace kel
