#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "kel/regex.h"

namespace tamber {

/// Which engine a pattern is for, and how it is compiled.
struct PatternKind {
  bool posix = false;
  bool caseSensitive = true;
  bool multiline = false;

  bool operator==(const PatternKind&) const = default;
};

/// The compiled patterns that a context has used last, as many as fit into a certain memory; it
/// always keeps the one that was asked for last.
class PatternCache {
 public:
  static constexpr size_t kCapacity = size_t{64} << 20;  ///< bytes, as kel::Regex::Size counts

  /// The compiled pattern, good until the next call; null with `fault` set for a malformed one.
  kel::Regex* Get(std::string_view pattern, PatternKind kind, kel::RegexFault& fault);
  size_t Count() const { return entries_.size(); }

 private:
  struct Entry {
    PatternKind kind;
    std::string pattern;
    std::unique_ptr<kel::Regex> regex;
    size_t size;
  };
  struct Key {
    PatternKind kind;
    std::string_view pattern;  ///< of the entry
    bool operator==(const Key&) const = default;
  };
  struct KeyHash {
    size_t operator()(const Key& key) const;
  };
  static Key KeyOf(const Entry& entry) { return {entry.kind, entry.pattern}; }
  void DropLast();

  std::list<Entry> entries_;  // the last used one first
  std::unordered_map<Key, std::list<Entry>::iterator, KeyHash> index_;
  size_t size_ = 0;
};

}  // namespace tamber
