#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// What both flavours of regular expressions share. Positions and lengths count bytes from 0.
namespace kel {

enum class RegexStatus : unsigned char {
  kMatch,
  kNoMatch,
  kBadPattern,  ///< the pattern does not compile
  kLimit,       ///< the search was given up: too deep, too much memory, too long
};

/// Where a group matched.
struct RegexSpan {
  static constexpr size_t kUnset = std::string_view::npos;
  size_t begin = kUnset;
  size_t end = kUnset;

  bool IsSet() const { return begin != kUnset; }
  std::string_view In(std::string_view subject) const {
    return IsSet() ? subject.substr(begin, end - begin) : std::string_view();
  }
};

/// What is wrong with a pattern.
struct RegexFault {
  std::string message;
  size_t offset = 0;  ///< byte of the pattern that the message is about
};

/// How long all searches of one call may take together. Matching itself is bounded by counts; the
/// clock is for subjects of megabytes on which even honest work multiplies.
class RegexBudget {
 public:
  explicit RegexBudget(std::chrono::milliseconds limit = std::chrono::seconds(5))
      : end_(std::chrono::steady_clock::now() + limit) {}
  bool IsSpent() const { return std::chrono::steady_clock::now() >= end_; }

 private:
  std::chrono::steady_clock::time_point end_;
};

/// A compiled pattern of either flavour, with the last match found. Used by one thread at a time.
class Regex {
 public:
  virtual ~Regex() = default;
  /// Finds the first match that begins at or after `from` (at most the length). `subjectIsUtf8`
  /// says whether the subject is well-formed UTF-8. Never gives kBadPattern.
  virtual RegexStatus Find(std::string_view subject, size_t from, bool subjectIsUtf8,
                           const RegexBudget& budget) = 0;
  /// After a match: the whole match, then the groups in order.
  const std::vector<RegexSpan>& Groups() const { return groups_; }
  /// Whether characters of several bytes count as one in such a subject.
  virtual bool CountsCharacters(bool subjectIsUtf8) const = 0;

 protected:
  std::vector<RegexSpan> groups_;
};

}  // namespace kel
