#pragma once

#include <string>

#include "machine/code.h"

namespace tamber {

/// Appends the code as text, a line for each instruction: its number, line and column, name, and
/// operands by name. Ends lines with "\r\n", as all dumps do.
void Disassemble(const Code& code, std::string& out);

}  // namespace tamber
