#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "modules/builtin.h"

/// The bodies of the string module, by the file that holds them; what each does for scripts is told
/// in docs/builtins/strings.md. Positions count from 1, lengths in bytes.
namespace tamber::strings {

/// A length or a position as scripts get it: an integer, the largest with error 113 when it does
/// not fit.
int32_t TooFarResult(Call& call, size_t position);
inline int32_t PositionResult(Call& call, size_t position) {
  return position <= INT32_MAX ? static_cast<int32_t>(position) : TooFarResult(call, position);
}

// ee_str_sub.cpp: parts of a text, case, pieces, order
std::string_view Mid(std::string_view value, int32_t offset, int32_t count);
std::string_view TruncateRight(std::string_view value, int32_t count);
std::string_view Left(std::string_view value, int32_t count);
std::string_view Right(std::string_view value, int32_t count);
Text Lower(std::string_view value);
Text Upper(std::string_view value);
int32_t Length(Call& call, std::string_view value);
ArrayResult Tokenise(std::string_view value, std::string_view tokens);
ArrayResult Sort(const ArrayData* values, bool ascending, bool caseSensitive);

// ee_str_search.cpp: finding without expressions, comparing versions
int32_t Find(Call& call, std::string_view value, std::string_view part);
bool Match(Call& call, std::string_view value, std::string_view pattern);
bool MatchCase(Call& call, std::string_view value, std::string_view pattern, bool caseSensitive);
bool CompareVersions(Call& call, std::string_view left, std::string_view comparison,
                     std::string_view right);

// ee_str_regex.cpp
bool MatchRegEx(Call& call, std::string_view value, std::string_view pattern, bool caseSensitive);
ArrayResult FindRegEx(Call& call, std::string_view value, std::string_view pattern,
                      bool caseSensitive);
ArrayResult FindRegEx2(Call& call, std::string_view value, std::string_view pattern,
                       bool caseSensitive);
Text ReplaceRegEx(Call& call, std::string_view value, std::string_view pattern,
                  std::string_view replacement, bool caseSensitive);
bool FindPcre(Call& call, std::string_view value, std::string_view pattern, Variable* result,
              bool caseSensitive);
bool FindPcreLines(Call& call, std::string_view value, std::string_view pattern, Variable* result,
                   bool caseSensitive, bool multiline);
bool FindPcreSafe(Call& call, std::string_view value, std::string_view pattern, Variable* result,
                  bool caseSensitive, bool stringSafe, bool regexSafe);
bool MatchPcre(Call& call, std::string_view value, std::string_view pattern);
bool MatchPcreCase(Call& call, std::string_view value, std::string_view pattern,
                   bool caseSensitive);
bool MatchPcreSafe(Call& call, std::string_view value, std::string_view pattern, bool caseSensitive,
                   bool stringSafe, bool regexSafe);
Text ReplacePcre(Call& call, std::string_view value, std::string_view pattern,
                 std::string_view replacement, bool caseSensitive);

// ee_str_code.cpp: encodings and ciphers
Text ToHex(std::string_view value);
std::string FromHex(Call& call, std::string_view value);
Text ToBase64(std::string_view value);
std::string FromBase64(Call& call, std::string_view value);
std::string ToDesBase64(Call& call, std::string_view value, std::string_view password);
std::string FromDesBase64(Call& call, std::string_view value, std::string_view password);
std::string Encrypt(Call& call, std::string_view value, std::string_view cipher);
std::string Utf16HexToText(std::string_view value, std::string_view tokens);

// ee_str_escape.cpp
Text ToAscii(std::string_view value);
Text ToBinary(std::string_view value);
Text EscapeHtml(std::string_view value);
Text EscapeHtmlUrl(std::string_view value);
Text ExpandEnvironment(Call& call, std::string_view path);

// ee_str_number.cpp
Text FormatChar(Call& call, char value, std::string_view format);
Text FormatInt(Call& call, int32_t value, std::string_view format);
Text FormatFloat(Call& call, float value, std::string_view format);
Text FormatDouble(Call& call, double value, std::string_view format);
std::string IntText(Call& call, int32_t value);
std::string IntToHex(int32_t value);
ArrayResult ToNumbers(std::string_view value);

// ee_str_eval.cpp
int32_t EvalInteger(Call& call, std::string_view expression);
int32_t EvalType(Call& call, std::string_view expression);
char EvalChar(Call& call, std::string_view expression);
bool EvalBoolean(Call& call, std::string_view expression);
float EvalFloat(Call& call, std::string_view expression);
double EvalDouble(Call& call, std::string_view expression);
std::string EvalText(Call& call, std::string_view expression);

// Shared by the groups.

/// The script's StrCase: whether functions without a case argument tell upper from lower case.
bool CaseSwitch(Call& call);
/// An integer as the script's IntBase says.
std::string IntTextIn(int32_t base, int32_t value);
/// The type `string[]`.
const TypeRef& StringArrayType();
/// What an error tells of a text that may be of any length.
std::string_view Excerpt(std::string_view text);

/// A text of known length, filled in by `fill(char*)`, which may be left by an exception.
template <class Fill>
Text MakeText(uint64_t length, Fill fill) {
  if (length == 0) return {};
  StrBuf* const buffer = StrBuf::NewRaw(length);
  Text text(buffer);
  fill(buffer->Data());
  return text;
}

}  // namespace tamber::strings
