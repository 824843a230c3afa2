#include "modules/patterncache.h"

#include <algorithm>

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

kel::Regex* PatternCache::Get(std::string_view pattern, PatternKind kind, kel::RegexFault& fault) {
  const auto known = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.kind == kind && entry.pattern == pattern;
  });
  if (known != entries_.end()) {
    std::rotate(entries_.begin(), known, known + 1);
    return entries_.front().regex.get();
  }
  std::unique_ptr<kel::Regex> regex = Compile(pattern, kind, fault);
  if (!regex) return nullptr;
  if (entries_.size() == kCapacity) entries_.pop_back();
  entries_.insert(entries_.begin(), Entry{kind, std::string(pattern), std::move(regex)});
  return entries_.front().regex.get();
}

}  // namespace tamber
