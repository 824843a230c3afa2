#include "frontend/scriptscan.h"

#include <algorithm>

#include "frontend/scrline.h"
#include "kel/kelascii.h"
#include "kel/stop.h"
#include "values/errcodes.h"

namespace tamber {

namespace {

constexpr std::string_view kDeclarations[] = {"proc",     "struct", "const",  "session",
                                              "constant", "extern", "include"};

bool IsDeclaration(std::string_view word) {
  return std::any_of(std::begin(kDeclarations), std::end(kDeclarations),
                     [&](std::string_view keyword) { return kel::EqualsNoCase(word, keyword); });
}

/// Reads on behind the first word of a line, which is the token last read again when this leaves
/// scope.
class LookAhead {
 public:
  explicit LookAhead(Tokeniser& tokeniser) : tokeniser_(tokeniser) {}
  LookAhead(const LookAhead&) = delete;
  LookAhead& operator=(const LookAhead&) = delete;
  ~LookAhead() {
    const kel::Interruptible whole(false);  // nothing may be thrown here
    Restart();
  }

  void Restart() const {
    tokeniser_.ResetLine();
    tokeniser_.ReadToken();
  }

 private:
  Tokeniser& tokeniser_;
};

bool IsNameToken(std::string_view token) {
  return !token.empty() && (kel::IsAlnum(token[0]) || token[0] == '_');
}

/// Reads up to the "]" of the "[" that comes next; false when there is none.
bool SkipBrackets(Tokeniser& tokeniser) {
  int depth = 0;
  do {
    tokeniser.ReadToken(true, false);
    if (tokeniser.GetTokenLength() == 0) return false;
    if (tokeniser.Token() == "[") ++depth;
    if (tokeniser.Token() == "]") --depth;
  } while (depth > 0);
  return true;
}

/// Whether the line is a header, of which the brackets behind the type are not closed.
bool IsUnclosedHeader(Tokeniser& tokeniser, const LookAhead& ahead) {
  ahead.Restart();
  tokeniser.ReadToken(true, false);  // "["
  do {
    tokeniser.ReadToken(true, false);
    if (!IsNameToken(tokeniser.Token())) return false;
  } while (tokeniser.PeekNextChar() != '(');
  return true;
}

/// Whether the line goes on as a statement that begins with a variable.
bool SelectsOrAssigns(Tokeniser& tokeniser) {
  const LookAhead ahead(tokeniser);
  while (tokeniser.PeekNextChar() == '[') {
    if (!SkipBrackets(tokeniser)) return false;
  }
  tokeniser.ReadToken(true, false);
  return tokeniser.Token() == "." || tokeniser.Token().ends_with('=');
}

}  // namespace

TypeLine FindTypeLine(Tokeniser& tokeniser) {
  const LookAhead ahead(tokeniser);
  if (tokeniser.PeekNextChar() == '[' && !SkipBrackets(tokeniser)) {
    return IsUnclosedHeader(tokeniser, ahead) ? TypeLine::Header : TypeLine::Other;
  }
  tokeniser.ReadToken(true, false);
  if (!IsNameToken(tokeniser.Token())) return TypeLine::Other;
  return tokeniser.PeekNextChar() == '(' ? TypeLine::Header : TypeLine::Declaration;
}

TypeLine FindTypeLine(Tokeniser& tokeniser, const TypeWordTest& isTypeWord) {
  // Looking at one character spares most lines the look-up.
  const char next = tokeniser.PeekNextChar();
  const bool possible = next == '[' || next == '_' || kel::IsAlnum(next);
  return possible && isTypeWord(tokeniser.Token()) ? FindTypeLine(tokeniser) : TypeLine::Other;
}

ScriptShape FindScriptShape(ScriptLine& script, const TypeWordTest& isTypeWord) {
  Tokeniser& tokeniser = script.GetTokeniser();
  while (script.ReadLogicalLine()) {
    tokeniser.ReadToken();
    if (tokeniser.GetLastError() != 0) return ScriptShape::Unreadable;
    const std::string_view word = tokeniser.Token();
    if (word.empty()) continue;
    if (word == "/*") {
      if (!script.SkipBlockComment()) break;
    } else if (IsDeclaration(word)) {
      return ScriptShape::Structured;
    } else if (!isTypeWord(word) || SelectsOrAssigns(tokeniser)) {
      return ScriptShape::Plain;
    } else if (FindTypeLine(tokeniser) == TypeLine::Header) {
      return ScriptShape::Structured;
    }
  }
  return ScriptShape::Structured;
}

int32_t CompactScript(ScriptLine& script, KelString& out) {
  Tokeniser& tokeniser = script.GetTokeniser();
  while (script.ReadLogicalLine()) {
    tokeniser.ReadToken();
    if (tokeniser.GetLastError() != 0) return tokeniser.GetLastError();
    if (tokeniser.GetTokenLength() == 0) continue;
    if (tokeniser.Token() != "/*") {
      out += script.GetLogicalLine();
      out += "\r\n";
    } else if (!script.SkipBlockComment()) {
      return ERR_SCRNOMORELINES;
    }
  }
  return ERR_SUCCESS;
}

}  // namespace tamber
