#pragma once

#include <memory>

#include "kel/regex.h"

namespace kel {

/// Compiles a POSIX-style pattern (extended syntax, leftmost-longest match); null with `fault` set
/// when it is malformed.
///
/// "^" and "$" are the ends of the subject, "." is any character but "\n"; `\d \w \s \b` are
/// understood. Matching takes time linear in the subject.
std::unique_ptr<Regex> CompilePosix(std::string_view pattern, bool caseSensitive,
                                    RegexFault& fault);

}  // namespace kel
