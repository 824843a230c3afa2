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

/// What a line is that begins with a type word.
enum class TypeLine {
  Declaration,  ///< of variables: a name follows
  Header,       ///< of a procedure: a name and "(" follow
  Other,        ///< the word is no type here: variables may have the name of one
};

/// Called when the first word of the line has been read and names a type; brackets may follow it.
/// Leaves the tokeniser as it was.
TypeLine FindTypeLine(Tokeniser& tokeniser);

/// The same for a first word that may be no type: Other.
TypeLine FindTypeLine(Tokeniser& tokeniser, const TypeWordTest& isTypeWord);

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
