#include "kel/textsearch.h"

#include <cstring>
#include <string>

#include "kel/kelascii.h"

namespace kel {
namespace {

/// Up to this length a part is compared at every place; longer ones are worth folded copies.
constexpr size_t kShortPart = 32;

/// The system's search, which is linear whatever the texts repeat.
size_t FindBytes(std::string_view text, std::string_view part, size_t from) {
  const void* hit = memmem(text.data() + from, text.size() - from, part.data(), part.size());
  return hit == nullptr ? kTextNotFound
                        : static_cast<size_t>(static_cast<const char*>(hit) - text.data());
}

size_t FindShortFolded(std::string_view text, std::string_view part, size_t from) {
  const char first = ToLower(part.front());
  const size_t last = text.size() - part.size();
  for (size_t at = from; at <= last; ++at) {
    if (ToLower(text[at]) == first && EqualsNoCase(text.substr(at, part.size()), part)) return at;
  }
  return kTextNotFound;
}

}  // namespace

size_t FindText(std::string_view text, std::string_view part, bool caseSensitive, size_t from) {
  if (from > text.size() || part.size() > text.size() - from) return kTextNotFound;
  if (part.empty()) return from;
  if (caseSensitive) return FindBytes(text, part, from);
  if (part.size() <= kShortPart) return FindShortFolded(text, part, from);
  const size_t hit = FindBytes(Lowered(text.substr(from)), Lowered(part), 0);
  return hit == kTextNotFound ? hit : from + hit;
}

}  // namespace kel
