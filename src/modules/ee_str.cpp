#include "modules/ee_str.h"

#include "modules/ee_str_bodies.h"

namespace tamber::strings {
namespace {

constexpr FunctionTraits kPlain{true, true, 0};
/// Calls nobody, and changes nothing.
constexpr FunctionTraits kPure{.exactResult = true, .localsBlind = true, .isPure = true};
/// Runs expressions of the script, which may do anything.
constexpr FunctionTraits kEvaluates{.exactResult = true};
/// Declared as an integer, and scripts see a boolean.
constexpr FunctionTraits kPushesBoolean{false, true, 0};
/// The third parameter takes the texts that were found.
constexpr FunctionTraits kFillsResult{true, true, 1U << 2};

const FUNCMOD_INTEGER* Integers() {
  static const FUNCMOD_INTEGER list[] = {
      {"INTBASE_DEC", 1},
      {"INTBASE_HEXU", 2},
      {"INTBASE_HEXL", 3},
      {"", 0},
  };
  return list;
}

const FUNCMOD_STRUCT* Structs() {
  static const FUNCMOD_STRUCT list[] = {
      {"RegexMatch", "int Offset; int Length;", nullptr, nullptr},
      {"", "", nullptr, nullptr},
  };
  return list;
}

const FUNCMOD_FUNCTION* Functions() {
  // The order is that of the manual, and decides ties between overloads.
  static const FUNCMOD_FUNCTION list[] = {
      {"string StrMid (string Value, int Offset, int Count)", Wrap<Mid>,
       "Count bytes of Value from the 1-based Offset on.", kPure},
      {"string StrTruncateRight (string Value, int Count)", Wrap<TruncateRight>,
       "Value without its last Count bytes.", kPure},
      {"string StrLeft (string Value, int Count)", Wrap<Left>, "The first Count bytes of Value.",
       kPure},
      {"string StrRight (string Value, int Count)", Wrap<Right>, "The last Count bytes of Value.",
       kPure},
      {"string StrToLower (string Value)", Wrap<Lower>,
       "Value with the letters A to Z in lower case.", kPure},
      {"string StrToUpper (string Value)", Wrap<Upper>,
       "Value with the letters a to z in upper case.", kPure},
      {"string StrToAscii (string Value)", Wrap<ToAscii>,
       "Value as printable ASCII, other bytes written as \\xHH.", kPure},
      {"string StrToBinary (string Value)", Wrap<ToBinary>,
       "Value with its backslash sequences turned into bytes.", kPure},
      {"int[] StrToNumbers (string Value)", Wrap<ToNumbers>, "The integers that stand in Value.",
       kPure},
      {"string IntToHexString (int Value)", Wrap<IntToHex>,
       "Value in lower-case hexadecimal digits.", kPure},
      {"string UTF16HexToStr (string Value, string Tokens)", Wrap<Utf16HexToText>,
       "The UTF-8 string of UTF-16 units written as hexadecimal digits.", kPlain},
      {"int StrLen (string Value)",
       {Wrap<Length>, Inlined::StringLength},
       "Length of Value in bytes.",
       kPure},
      {"string MakeStr (char Value, string Format)", Wrap<FormatChar>,
       "Value written by a format with one conversion.", kPure},
      {"string MakeStr (int Value, string Format)", Wrap<FormatInt>,
       "Value written by a format with one conversion.", kPure},
      {"string MakeStr (float Value, string Format)", Wrap<FormatFloat>,
       "Value written by a format with one conversion.", kPure},
      {"string MakeStr (double Value, string Format)", Wrap<FormatDouble>,
       "Value written by a format with one conversion.", kPure},
      {"string[] StrTokenise (string Value, string Tokens)", Wrap<Tokenise>,
       "The pieces of Value between any of the bytes in Tokens.", kPure},
      {"string[] StrSort (string Values[], bool Ascending, bool CaseSensitive)", Wrap<Sort>,
       "A sorted copy of an array of strings; equal ones keep their order.", kPure},
      {"string StrExpandEnvString (string Path)", Wrap<ExpandEnvironment>,
       "Path with the values of the environment variables that it names.", kPlain},
      {"bool StrMatchRegEx (string Value, string RegEx, bool CaseSensitive)", Wrap<MatchRegEx>,
       "Whether a POSIX-style expression matches somewhere in Value.", kPlain},
      {"string[] StrFindRegEx (string Value, string RegEx, bool CaseSensitive)", Wrap<FindRegEx>,
       "All matches of a POSIX-style expression, as strings.", kPlain},
      {"RegexMatch[] StrFindRegEx2 (string Value, string RegEx, bool CaseSensitive)",
       Wrap<FindRegEx2>, "The positions and lengths of all matches of a POSIX-style expression.",
       kPlain},
      {"string StrReplaceRegEx (string Value, string RegEx, string Replace, bool CaseSensitive)",
       Wrap<ReplaceRegEx>, "Value with all matches of a POSIX-style expression replaced.", kPlain},
      {"string ConvertToHex (string Value)", Wrap<ToHex>,
       "Two hexadecimal digits for each byte of Value.", kPure},
      {"string ConvertFromHex (string Value)", Wrap<FromHex>,
       "The bytes that pairs of hexadecimal digits stand for.", kPure},
      {"string StrEncrypt (string Value, string EncType)", Wrap<Encrypt>,
       "Value encrypted with the library's fixed key, in hexadecimal digits.", kPlain},
      {"string StrEncodeBase64 (string Value)", Wrap<ToBase64>, "Value in Base64.", kPure},
      {"string StrEncodeHex (string Value)", Wrap<ToHex>,
       "Two hexadecimal digits for each byte of Value.", kPlain},
      {"string StrEncodeDESBase64 (string Value, string Password)", Wrap<ToDesBase64>,
       "Value encrypted with DES and Password, in Base64.", kPlain},
      {"string StrDecodeBase64 (string Value)", Wrap<FromBase64>,
       "The bytes that a Base64 string encodes.", kPure},
      {"string StrDecodeDESBase64 (string Value, string Password)", Wrap<FromDesBase64>,
       "The string that StrEncodeDESBase64 encrypted with Password.", kPlain},
      {"string StrEscapeHtml (string Value)", Wrap<EscapeHtml>,
       "Value with numeric entities for what has a meaning in HTML.", kPure},
      {"string StrEscapeHtmlUrl (string Value)", Wrap<EscapeHtmlUrl>,
       "Value with %xx for what has a meaning in a URL.", kPure},
      {"int StrFind (string Value, string SubString)", Wrap<Find>,
       "1-based position of SubString in Value, 0 when absent; StrCase decides on case.", kPure},
      {"int StrMatch (string Value, string Pattern)", Wrap<Match>,
       "Whether Value matches a pattern of * and ?; StrCase decides on case.", kPushesBoolean},
      {"bool StrMatch (string Value, string Pattern, bool CaseSensitive)", Wrap<MatchCase>,
       "Whether Value matches a pattern of * and ?.", kPure},
      {"bool StrFindPcre (string Value, string Regex, string Result[], bool CaseSensitive)",
       Wrap<FindPcre>, "Finds a Perl-style expression; returns the match and its groups in Result.",
       kFillsResult},
      {"bool StrFindPcre (string Value, string Regex, string Result[], bool CaseSensitive, bool "
       "fMultiline)",
       Wrap<FindPcreLines>, "As above; with fMultiline ^ and $ match at line ends.", kFillsResult},
      {"bool StrFindPcre (string Value, string Regex, string Result[], bool CaseSensitive, bool "
       "StringSafe, bool RegexSafe)",
       Wrap<FindPcreSafe>, "As above; values and expressions that are not safe are cleaned first.",
       kFillsResult},
      {"bool StrMatchPcre (string Value, string Regex)", Wrap<MatchPcre>,
       "Whether a Perl-style expression matches somewhere in Value; StrCase decides on case.",
       kPlain},
      {"bool StrMatchPcre (string Value, string Regex, bool CaseSensitive)", Wrap<MatchPcreCase>,
       "Whether a Perl-style expression matches somewhere in Value.", kPlain},
      {"bool StrMatchPcre (string Value, string Regex, bool CaseSensitive, bool StringSafe, bool "
       "RegexSafe)",
       Wrap<MatchPcreSafe>, "As above; values and expressions that are not safe are cleaned first.",
       kPlain},
      {"string StrReplacePcre (string Value, string RegEx, string Replace, bool CaseSensitive)",
       Wrap<ReplacePcre>, "Value with all matches of a Perl-style expression replaced.", kPlain},
      {"string MakeStr (int Value)", Wrap<IntText>, "Value in the notation that IntBase asks for.",
       kPlain},
      {"int MakeInt (string Expression)", Wrap<EvalInteger>,
       "Evaluates a string as an expression; its value as an integer.", kEvaluates},
      {"int EvalStr (string Expression)", Wrap<EvalInteger>,
       "Evaluates a string as an expression; its value as an integer.", kEvaluates},
      {"int StrEvalGetType (string Expression)", Wrap<EvalType>,
       "Evaluates a string as an expression; the type of its value, 0 when it is none.",
       kEvaluates},
      {"int StrEvalAsInteger (string Expression)", Wrap<EvalInteger>,
       "Evaluates a string as an expression; its value as an integer.", kEvaluates},
      {"char StrEvalAsChar (string Expression)", Wrap<EvalChar>,
       "Evaluates a string as an expression; its value as a character.", kEvaluates},
      {"bool StrEvalAsBoolean (string Expression)", Wrap<EvalBoolean>,
       "Evaluates a string as an expression; its value as a boolean.", kEvaluates},
      {"float StrEvalAsFloat (string Expression)", Wrap<EvalFloat>,
       "Evaluates a string as an expression; its value as a float.", kEvaluates},
      {"Double StrEvalAsDouble (string Expression)", Wrap<EvalDouble>,
       "Evaluates a string as an expression; its value as a double.", kEvaluates},
      {"string StrEvalAsString (string Expression)", Wrap<EvalText>,
       "Evaluates a string as an expression; its value as a string.", kEvaluates},
      {"bool CompareVersions (string Version1, string Operator, string Version2)",
       Wrap<CompareVersions>, "Whether two dotted version numbers stand in the given order.",
       kPlain},
      {"", nullptr, "", {}},
  };
  return list;
}

}  // namespace
}  // namespace tamber::strings

const FUNCMOD_REGISTRATION* GetStringModule() {
  using namespace tamber::strings;
  static const FUNCMOD_REGISTRATION registration[] = {
      {FUNCMOD_INTEGERS, Integers()},
      {FUNCMOD_STRUCTS, Structs()},
      {FUNCMOD_FUNCTIONS, Functions()},
      {FUNCMOD_END, nullptr},
  };
  return registration;
}
