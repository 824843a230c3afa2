#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kel/regex.h"

namespace tamber {

/// Which engine a pattern is for, and how it is compiled.
struct PatternKind {
  bool posix = false;
  bool caseSensitive = true;
  bool multiline = false;

  bool operator==(const PatternKind&) const = default;
};

/// The compiled patterns that a context has used last. Scripts use few patterns, and mostly the
/// same one in a loop, so they are kept in the order of their use and looked for from the front.
class PatternCache {
 public:
  static constexpr size_t kCapacity = 32;

  /// The compiled pattern, good until the next call; null with `fault` set for a malformed one.
  kel::Regex* Get(std::string_view pattern, PatternKind kind, kel::RegexFault& fault);
  size_t Count() const { return entries_.size(); }

 private:
  struct Entry {
    PatternKind kind;
    std::string pattern;
    std::unique_ptr<kel::Regex> regex;
  };
  std::vector<Entry> entries_;  // the last used one first
};

}  // namespace tamber
