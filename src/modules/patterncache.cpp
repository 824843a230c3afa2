#include "modules/patterncache.h"

#include <functional>
#include <utility>

#include "kel/regex_pcre.h"
#include "kel/regex_posix.h"

namespace tamber {
namespace {

std::unique_ptr<kel::Regex> Compile(std::string_view pattern, PatternKind kind,
                                    kel::RegexFault& fault) {
  if (kind.posix) return kel::CompilePosix(pattern, kind.caseSensitive, fault);
  return kel::CompilePcre(pattern, {kind.caseSensitive, kind.multiline}, fault);
}

}  // namespace

size_t PatternCache::KeyHash::operator()(const Key& key) const {
  const unsigned kind = unsigned{key.kind.posix} | unsigned{key.kind.caseSensitive} << 1U |
                        unsigned{key.kind.multiline} << 2U;
  return std::hash<std::string_view>()(key.pattern) * 8 + kind;
}

void PatternCache::DropLast() {
  const Entry& last = entries_.back();
  index_.erase(KeyOf(last));
  size_ -= last.size;
  entries_.pop_back();
}

kel::Regex* PatternCache::Get(std::string_view pattern, PatternKind kind, kel::RegexFault& fault) {
  if (pattern.size() > kel::kLongestPcre) return Compile(pattern, kind, fault).release();  // none
  // Mostly it is the same one in a loop.
  const Key key{kind, pattern};
  if (!entries_.empty() && KeyOf(entries_.front()) == key) return entries_.front().regex.get();
  const auto known = index_.find(key);
  if (known != index_.end()) {
    entries_.splice(entries_.begin(), entries_, known->second);
    return entries_.front().regex.get();
  }
  std::unique_ptr<kel::Regex> regex = Compile(pattern, kind, fault);
  if (!regex) return nullptr;
  const size_t size = sizeof(Entry) + pattern.size() + regex->Size();
  while (!entries_.empty() && size_ + size > kCapacity) DropLast();
  std::list<Entry> fresh;
  fresh.push_back({kind, std::string(pattern), std::move(regex), size});
  index_.emplace(KeyOf(fresh.front()), fresh.begin());
  entries_.splice(entries_.begin(), fresh);
  size_ += size;
  return entries_.front().regex.get();
}

}  // namespace tamber
