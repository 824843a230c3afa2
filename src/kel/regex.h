#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "kel/clock.h"

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
///
/// After the first fifth, what counts is the time that the thread computes, so that a busy machine
/// does not make a script fail that is fine elsewhere. That clock is dear to read: short searches
/// never do, and the cheap one, which is never behind it, tells when to look. For one thread.
class RegexBudget {
 public:
  explicit RegexBudget(std::chrono::nanoseconds limit = std::chrono::seconds(5))
      : rest_(limit - limit / 5), look_(Clock::now() + limit / 5) {}
  bool IsSpent() const {
    if (Clock::now() < look_) return false;
    const std::chrono::nanoseconds computed(ThreadNanoseconds());
    if (end_.count() == 0) end_ = computed + rest_;
    if (computed >= end_) return true;
    look_ = Clock::now() + (end_ - computed);
    return false;
  }

 private:
  using Clock = std::chrono::steady_clock;
  std::chrono::nanoseconds rest_;
  mutable std::chrono::nanoseconds end_{0};  ///< on the thread's clock; 0 before the first look
  mutable Clock::time_point look_;
};

/// A compiled pattern of either flavour, with the last match found. Used by one thread at a time.
class Regex {
 public:
  virtual ~Regex() = default;
  /// Finds the first match that begins at or after `from` (at most the length). `subjectIsUtf8`
  /// says whether the subject is well-formed UTF-8. `wanted` says of how many groups, the whole
  /// match included, the caller wants to know the places: with 0 only whether there is a match.
  /// Each can make the search dearer. Never gives kBadPattern. Looks for a stop (kel/stop.h).
  virtual RegexStatus Find(std::string_view subject, size_t from, bool subjectIsUtf8,
                           const RegexBudget& budget, size_t wanted = kAllGroups) = 0;
  static constexpr size_t kAllGroups = std::string_view::npos;
  /// After a match: the whole match, then the groups in order, as many as were wanted or more.
  const std::vector<RegexSpan>& Groups() const { return groups_; }
  /// How many groups the pattern has, the whole match included.
  virtual size_t GroupCount() const = 0;
  /// Whether characters of several bytes count as one in such a subject.
  virtual bool CountsCharacters(bool subjectIsUtf8) const = 0;
  /// About how many bytes the compiled pattern comes to take.
  virtual size_t Size() const = 0;

 protected:
  std::vector<RegexSpan> groups_;
};

}  // namespace kel
