#include "values/errhints.h"

#include <algorithm>

#include "kel/kelascii.h"
#include "values/errcodes.h"

namespace tamber {
namespace {

struct Habit {
  int32_t code;
  /// What the error is about, between blanks; "*": whatever it is.
  std::string_view details;
  std::string_view hint;
};

constexpr Habit kHabits[] = {
    {ERR_BADSTATEMENT, " var let dim auto local ", "a declaration begins with a type: int count"},
    {ERR_BADSTATEMENT, " function func fn def sub void procedure method ",
     "a procedure begins with \"proc\", or with the type of its result: int Area(int w, int h)"},
    {ERR_BADSTATEMENT, " proc struct const constant session extern include ",
     "it belongs outside of procedures, in a script that does not begin with a statement"},
    {ERR_BADSTATEMENT, " elif elseif ", "there is no \"if\" that it belongs to"},
    {ERR_BADSTATEMENT, " endfor ", "there is no \"for\" that it belongs to"},
    {ERR_BADSTATEMENT, " switch select case default ",
     "cases are told apart by \"if\" and \"elif\""},
    {ERR_BADSTATEMENT, " do repeat until loop foreach ", "loops are \"while\" and \"for\""},
    {ERR_BADSTATEMENT, " next end done fi } ",
     "blocks end with \"endif\", \"endwhile\" and \"endfor\", procedures with \"endproc\""},
    {ERR_BADSTATEMENT, " try catch throw raise except ",
     "errors are handled by the procedure that ErrHandler names"},
    {ERR_BADSTATEMENT, " import require use using module ",
     "scripts and modules are taken in by \"include\""},
    {ERR_BADSTATEMENT, " echo write puts printf println console ",
     "output is written by Print(\"...\\n\")"},
    {ERR_ASSIGNNOEQUAL, " == : ", "an assignment is written with \"=\""},
    {ERR_ASSIGNNOEQUAL, " + - ", "a step is written: count += 1"},
    {ERR_EXPRBADTOKEN, " = ",
     "\"==\" compares; \"=\" only assigns, at the beginning of a statement"},
    {ERR_EXPRBADTOKEN, " and ", "it is written \"&&\""},
    {ERR_EXPRBADTOKEN, " or ", "it is written \"||\""},
    {ERR_EXPRBADTOKEN, " not ", "it is written \"!\""},
    {ERR_EXPRBADTOKEN, " then ", "a condition ends with its line"},
    {ERR_EXPRBADTOKEN,
     " bool char int float double string estring if while for return break continue exit call ",
     "each statement is on a line of its own"},
    {ERR_EXPRBADTOKEN, " null nil none undefined ",
     "there is no such value; what has not been set is 0, FALSE or \"\""},
    {ERR_EXPRBADTOKEN, " [ { ", "an array is filled element by element, or with \"<<=\""},
    {ERR_EXPRBADTOKEN, " ? ", "there is no such operator; use \"if\" and \"else\""},
    {ERR_FORBADSYNTAX, "*", "it is written: for (i = 1; i <= 10; i += 1)"},
    {ERR_VARBADTYPE, " var void ", "the types are bool, char, int, float, double, string, estring"},
    {ERR_VAREXISTS, "", "a name is missing here"},
    {ERR_VAREXISTS, " [ ", "there are no arrays of arrays; put the inner array into a structure"},
    {ERR_VARNOCOMMA, " = ", "no value can be given here"},
    {ERR_VARNOCOMMA, "*",
     "names are separated by commas and consist of letters, digits and \"_\"; the size of an array "
     "is a number or an integer constant"},
    {kErrStructBlock, " { ", "there are no braces; a structure ends with \"endstruct\""},
    {ERR_EXPRBADFORMAT, " . ", "a number begins with a digit: 0.5"},
    {ERR_PROCCALLMAIN, "*",
     "it runs by itself when the script does; its definition begins with \"proc\""},
    {ERR_PROCBADVARTYPE, "*", "a parameter is written with its type: int count"},
    {ERR_PROCNORETURN, "*", "a \"return\" in a block is not enough: the procedure ends with one"},
    {ERR_RETURNNOTEMPTY, "*",
     "a procedure that returns a value begins with the type of that instead of \"proc\""},
};

/// Letters with marks, typographic quotes, hard spaces.
bool IsForeign(int32_t code, std::string_view detail) {
  return (code == ERR_EXPRBADTOKEN || code == ERR_BADSTATEMENT || code == ERR_VARNOCOMMA ||
          code == ERR_VARBADNAME) &&
         std::any_of(detail.begin(), detail.end(),
                     [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

bool IsAbout(const Habit& habit, std::string_view detail) {
  if (habit.details == "*") return !detail.empty();
  if (habit.details.empty() || detail.empty()) return habit.details == detail;
  for (size_t at = 0; at + detail.size() + 1 < habit.details.size(); ++at) {
    if (habit.details[at] == ' ' && habit.details[at + detail.size() + 1] == ' ' &&
        kel::EqualsNoCase(habit.details.substr(at + 1, detail.size()), detail)) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::string_view UsualHint(int32_t code, std::string_view detail) {
  if (code == ERR_EXPRBADTOKEN && detail.starts_with('\''))
    return "single quotes hold one character; strings are in double quotes";
  if (IsForeign(code, detail)) return "outside of strings and comments only ASCII has a meaning";
  for (const Habit& habit : kHabits)
    if (habit.code == code && IsAbout(habit, detail)) return habit.hint;
  return {};
}

}  // namespace tamber
