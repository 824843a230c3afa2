#pragma once

#include <string_view>

namespace tamber {

/// The words that no variable can be named, in any case.
inline constexpr std::string_view kReservedWords[] = {
    "bool",      "boolean", "break",    "call",    "char",   "const",   "constant",
    "continue",  "double",  "elif",     "else",    "elseif", "endif",   "endproc",
    "endstruct", "exit",    "extern",   "float",   "if",     "include", "int",
    "integer",   "proc",    "return",   "session", "string", "estring", "struct",
    "wend",      "while",   "endwhile", "for",     "endfor"};

}  // namespace tamber
