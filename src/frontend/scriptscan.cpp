#include "frontend/scriptscan.h"

#include <algorithm>

#include "frontend/scrline.h"
#include "kel/kelascii.h"
#include "values/errcodes.h"

namespace tamber {

namespace {

constexpr std::string_view kDeclarations[] = {"proc",     "struct", "const",  "session",
                                              "constant", "extern", "include"};

bool IsDeclaration(std::string_view word) {
  return std::any_of(std::begin(kDeclarations), std::end(kDeclarations),
                     [&](std::string_view keyword) { return kel::EqualsNoCase(word, keyword); });
}

}  // namespace

bool IsTypedHeader(Tokeniser& tokeniser) {
  const char* const start = tokeniser.GetSearchPtr();
  const int error = tokeniser.GetLastError();
  tokeniser.GetNextToken(1, 0);
  if (tokeniser.Token() == "[") {
    tokeniser.GetNextToken(1, 0);  // "]"
    tokeniser.GetNextToken(1, 0);
  }
  tokeniser.GetNextToken(1, 0);
  const bool header = tokeniser.Token() == "(";
  tokeniser.SetSearch(start);
  tokeniser.SetLastError(error);
  return header;
}

ScriptShape FindScriptShape(ScriptLine& script, const TypeWordTest& isTypeWord) {
  Tokeniser& tokeniser = script.GetTokeniser();
  while (script.ReadLogicalLine()) {
    tokeniser.GetNextToken(1, 1);
    if (tokeniser.GetLastError() != 0) return ScriptShape::Unreadable;
    const std::string_view word = tokeniser.Token();
    if (word.empty()) continue;
    if (word == "/*") {
      script.SkipBlockComment();
    } else if (IsDeclaration(word)) {
      return ScriptShape::Structured;
    } else if (!isTypeWord(word)) {
      return ScriptShape::Plain;
    } else if (IsTypedHeader(tokeniser)) {
      return ScriptShape::Structured;
    }
  }
  return ScriptShape::Structured;
}

int32_t CompactScript(ScriptLine& script, KelString& out) {
  Tokeniser& tokeniser = script.GetTokeniser();
  while (script.ReadLogicalLine()) {
    tokeniser.GetNextToken(1, 1);
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
