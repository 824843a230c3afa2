#pragma once

#include <memory>

#include "kel/regex.h"

namespace kel {

struct PcreOptions {
  bool caseSensitive = true;
  bool multiline = false;  ///< "^" and "$" also match at the line ends inside the subject
  bool whole = false;      ///< only a match of the whole subject counts
};

/// Compiling cannot be interrupted, and takes memory that is many times the pattern's.
inline constexpr size_t kLongestPcre = size_t{1} << 20;

/// Compiles a Perl-style pattern; null with `fault` set when it is malformed.
///
/// Pattern and subject count as UTF-8 when both are well-formed, as single bytes otherwise. Line
/// ends are "\n", "\r" and "\r\n". No pattern can run away: matching is bounded in steps, memory
/// and time, and gives kLimit beyond.
std::unique_ptr<Regex> CompilePcre(std::string_view pattern, const PcreOptions& options,
                                   RegexFault& fault);

}  // namespace kel
