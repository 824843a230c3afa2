#pragma once

#include <string>

#include "machine/code.h"

namespace tamber {

/// Follows the code along every way that a run can take through it, those of errors included, and
/// checks that each instruction finds what it assumes: registers hold values of the right kind,
/// what is owned is released exactly once, nothing borrowed outlives what may change it, jumps land
/// on statements, indexes stay within their tables. Returns "" or what is wrong and where.
std::string VerifyCode(const Code& code);

/// Whether new contexts verify the code that they run: in builds for debugging, unless a test says
/// otherwise.
bool VerifiesByDefault();
void SetVerifiesByDefault(bool verifies);

}  // namespace tamber
