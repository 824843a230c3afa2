#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "kel/kelstring.h"

class ScriptLine;
class Tokeniser;

/// Passes over a script that look at its lines without compiling them.
namespace tamber {

/// Whether a word names a type.
using TypeWordTest = std::function<bool(std::string_view)>;

/// Called behind a type word: whether name and "(" follow, with "[" "]" before them or not, which
/// makes the line the header of a procedure. The read position stays where it is.
bool IsTypedHeader(Tokeniser& tokeniser);

enum class ScriptShape {
  Structured,  ///< declarations and procedures
  Plain,       ///< a list of statements
  Unreadable,  ///< a line's first token is broken: see the tokeniser's last error
};

/// Reads from where the script stands until a line decides.
ScriptShape FindScriptShape(ScriptLine& script, const TypeWordTest& isTypeWord);

/// Appends the logical lines of the script to `out`, each ended by "\r\n", without blank lines and
/// comments of whole lines. 0, or the error that stopped it; the script then stands on the line.
int32_t CompactScript(ScriptLine& script, KelString& out);

}  // namespace tamber
