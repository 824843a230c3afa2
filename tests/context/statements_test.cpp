#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "context/contextstate.h"
#include "frontend/compile.h"
#include "frontend/script.h"
#include "frontend/structdef.h"
#include "statements/procedure.h"
#include "values/errcodes.h"

namespace {

struct Outcome {
  int32_t code = 0;
  std::string text;
  uint32_t line = 0;
};

class Compile : public testing::Test {
 protected:
  Outcome CompileText(const std::string& text, const KelString& name = "test") {
    context_.SetContextError(ERR_SUCCESS, "");
    auto script =
        std::make_unique<TamberScript>(&context_, tamber::ScriptText::FromBuffer(name, text));
    tamber::CompilePlace place;
    Outcome outcome;
    if (tamber::CompileScript(context_.State(), *script, place)) return outcome;
    outcome.code = context_.GetContextError();
    outcome.text = context_.GetContextErrorText().Str();
    outcome.line = place.line;
    return outcome;
  }

  /// What a statement's dump begins with, in short; a jump with its offset.
  static std::string Sign(const StatementBase& statement) {
    constexpr std::pair<std::string_view, const char*> kShort[] = {{"Push expression", "E"},
                                                                   {"Push variable", "U"},
                                                                   {"Pop into variable", "V"},
                                                                   {"Pop assign", "S"},
                                                                   {"Pop Stack", "D"},
                                                                   {"Pop into param", "P"},
                                                                   {"Local Declare", "L"},
                                                                   {"Exit Script", "X"},
                                                                   {"Shrink", "-"},
                                                                   {"Grow", "+"},
                                                                   {"Append", "<"},
                                                                   {"Call", "C"}};
    KelString dump;
    statement.Dump(dump, 0);
    for (const auto& [start, sign] : kShort)
      if (dump.View().starts_with(start)) return sign;
    std::string text(dump.View().substr(0, dump.GetLength() - 2));
    return std::regex_replace(text, std::regex("(On (.).*)?Goto "), "J$2");
  }

  /// The statements of a procedure: jumps with their offsets, the others by a letter.
  std::string Layout(const char* procedure) {
    const TamberProcedure* const found = context_.GetProcedure(procedure);
    if (found == nullptr) return "none";
    std::string layout;
    const tamber::StatementsOf statements(*found);
    for (uint32_t i = 1; i <= statements->GetCount(); ++i) {
      layout += (i == 1 ? "" : " ") + Sign(statements->Get(i));
    }
    return layout;
  }

  TamberContext context_;
};

TEST_F(Compile, BlocksBecomeJumps) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"", ""},
      {"IF a\na = 1\nElse\na = 2\nEndIf", "E JF4 E V J3 E V"},
      {"if a\na = 1\nelif b\na = 2\nelseif c\na = 3\nelse\na = 4\nendif",
       "E JF4 E V J13 E JF4 E V J8 E JF4 E V J3 E V"},
      {"if a\na = 1\nelif b\na = 2\nendif", "E JF4 E V J6 E JF4 E V J1"},
      {"if a\nelif b\nendif", "E JF2 J4 E JF2 J1"},
      {"if a\nif b\nexit\nelse\nendif\nendif\n", "E JF5 E JF3 X J1"},
      {"while a\nbreak\ncontinue\nendwhile", "E JF4 J3 J-3 J-4"},
      {"while a\nif b\nbreak // out\nendif\nwend", "E JF5 E JF2 J2 J-5"},
      {"while a\nwhile b\nbreak\nwend\nbreak\nwend", "E JF7 E JF3 J2 J-3 J2 J-7"},
      {"for (a = 0; a < 3; a = a + 1)\ncontinue\nbreak\nendfor", "E V E JF6 J2 J4 E V J-6"},
      {"for (; a < 3; a = a + 1)\nexit\ncontinue\nendfor", "X J1 E V J-4"},
      {"for (a = 1; a; ) tail\nendfor", "E V E JF2 J-2"},
      {"return\nexit\nif a\nreturn\nendif", "J5 X E JF2 J1"},
      {"a += 2\na = b", "E V E V"},
      {"l += 1\nl -= 1\nl <<= 5\nl[1] = 2\nl[1] += 2", "E U + E U - E U < E E S E E S"},
      {"Max(1, 2)\n/* endproc\n*/ exit\n", "E D"},
      {"call \"x\"", "E C"},
  };
  for (const auto& [body, layout] : cases) {
    const std::string text =
        std::string("int a, b, c\nint[] l\nproc main()\n") + body + "\nendproc\n";
    const Outcome outcome = CompileText(text);
    EXPECT_EQ(outcome.code, 0) << body << "\n" << outcome.text << " line " << outcome.line;
    EXPECT_EQ(Layout("main"), layout) << body;
    context_.ResetContext();
  }
}

struct ErrorCases {
  int32_t code;
  uint32_t line;
  std::vector<const char*> texts;
};

TEST_F(Compile, BodiesThatAreRefused) {
  const std::vector<ErrorCases> groups = {
      {ERR_ENDIFUNMATCHED, 2, {"if 1\n", "endif\n"}},
      {ERR_ENDIFUNMATCHED, 3, {"if 1\nelif 2\n"}},
      {ERR_BADSTATEMENT, 4, {"if 1\nelse\nelif 2\nendif\n"}},
      {ERR_WENDUNMATCHED, 4, {"while 1\nif 1\nwend\nendif\n"}},
      {ERR_SCRBADQUOTE, 3, {"while 1\nx\"\nwend\n"}},
      {ERR_WENDUNMATCHED, 2, {"EndWhile\n"}},
      {ERR_BREAKUNMATCHED, 2, {"for (break; 1;)\nendfor\n"}},
      {ERR_CONTUNMATCHED, 3, {"if 1\ncontinue\nendif\n"}},
      {ERR_FORBADSYNTAX,
       2,
       {"for i = 1\nendfor\n", "for (exit; 1)\nendfor\n", "for (exit; 1; exit\nendfor\n"}},
      {ERR_EXPREMPTY, 2, {"for (exit; ; exit)\nendfor\n", "ErrCode +=\n"}},
      {ERR_VARNOCOMMA,
       2,
       {"for (int i = 0; 1;)\nendfor\n", "int x = 3\n", "int[x] y\n", "int[] x[2]\n"}},
      {ERR_BADSTATEMENT, 2, {"for (;; nonsense)\nexit\nendfor\n", "nonsense\n", "endstruct\n"}},
      {ERR_VAREXISTS, 2, {"int\n", "int x, x\n", "int While\n", "int TRUE\n", "int early\n"}},
      {ERR_ASSIGNNOEQUAL, 2, {"TRUE 1\n", "ErrCode <= 1\n", "ErrCode >>= 1\n"}},
      {ERR_EXPREMPTY, 3, {"int x\nx = \\\n\n"}}};
  for (const auto& [code, line, texts] : groups) {
    for (const char* text : texts) {
      const Outcome outcome =
          CompileText("proc p()\n" + std::string(text) + "endproc\nconst early = 1\n");
      const bool early = std::string_view(text) == "int early\n";
      // A name that is declared further down is free for a local.
      EXPECT_EQ(outcome.code, early ? 0 : code) << text;
      EXPECT_EQ(outcome.line, early ? 0 : line) << text;
      EXPECT_EQ(context_.FindProcedure("p") != 0, early) << text;
      context_.ResetContext();
    }
  }
}

TEST_F(Compile, TopLevelsThatAreRefused) {
  const std::vector<ErrorCases> groups = {
      {ERR_BADSTATEMENT, 1, {"endproc\n"}},
      {ERR_BADSTATEMENT, 2, {"const a = 1\nx = 1\n"}},
      {ERR_VAREXISTS, 2, {"const a = 1\nint A\n"}},
      {ERR_VARISSTATEMENT, 1, {"const while = 1\n"}},
      {ERR_VARISFUNC, 1, {"const Max = 1\n", "proc Max()\nendproc\n"}},
      {ERR_EXPRBADFORMAT, 1, {"const a = 1 2\n"}},
      {ERR_VARBADTYPE, 1, {"session nonsense a\n"}},
      {ERR_PROCNOOPENPAR, 1, {"proc p\nendproc\n", "proc 2-x()\nendproc\n"}},
      {ERR_VARBADNAME, 1, {"proc -()\nendproc\n"}},
      {ERR_PROCDUPLICATE, 1, {"proc if()\nendproc\n"}},
      {ERR_VAREXISTS,
       1,
       {"proc TRUE()\nendproc\n", "proc p(int && a)\nendproc\n", "proc p(int a, int A)\nendproc\n",
        "struct int\nint a\nendstruct\n"}},
      {ERR_PROCBADVARTYPE, 1, {"proc p(x)\nendproc\n", "proc p(int a,)\nendproc\n"}},
      {ERR_VARNOCOMMA, 1, {"proc p(int a int b)\nendproc\n", "proc p(int a\nendproc\n"}},
      {ERR_PROCNESTEDDEF,
       2,
       {"proc p()\nproc q()\nendproc\n", "proc p()\nint[] q(int a)\nendproc\n"}},
      {ERR_PROCBADRETTYPE, 3, {"proc p()\nendproc\nint [3 f()\nendproc\n"}},
      {ERR_PROCBADRETTYPE, 1, {"int[3] f()\nendproc\n", "int[ f(int[] a)\nendproc\n"}},
      {ERR_SCRNOMORELINES, 2, {"proc p()\n/* x\nendproc\n"}},
      {ERR_SCRNOMORELINES, 3, {"exit\nif 1\n/* x\nendif\n", "struct s\nint a\n/* x\nendstruct\n"}},
      {ERR_SCRNOMORELINES, 4, {"proc p()\nendproc\n\n/* x\n"}},
      {ERR_EXPREMPTY, 2, {"int f()\nreturn\nendproc\n"}},
      {tamber::kErrStructBlock, 1, {"struct\nendstruct\n"}},
      {tamber::kErrStructBlock, 3, {"struct s\nint a\n"}},
      {tamber::kErrStructMember,
       2,
       {"struct s\nint a, A\nendstruct\n", "struct s\nnonsense a\nendstruct\n",
        "struct s\ns a\nendstruct\n"}},
      {ERR_VARNOCOMMA, 2, {"struct s\nint a b\nendstruct\n"}}};
  for (const auto& [code, line, texts] : groups) {
    for (const char* text : texts) {
      const Outcome outcome = CompileText(text);
      EXPECT_EQ(outcome.code, code) << text << outcome.text;
      EXPECT_EQ(outcome.line, line) << text;
      context_.ResetContext();
    }
  }
}

TEST_F(Compile, ProceduresCanBeCalledAboveTheirText) {
  const Outcome outcome = CompileText(
      "proc main()\nlater(1)\nendproc\n"
      "proc later(int n, string &s)\nmain2()\nendproc\n"
      "proc main2()\nendproc\n");
  EXPECT_EQ(outcome.code, ERR_PROCPARMCOUNT);
  context_.ResetContext();
  EXPECT_EQ(CompileText("proc a()\nb()\nendproc\nproc b()\na()\nendproc\n").code, 0);
  EXPECT_EQ(Layout("a"), "E D");
  const TamberProcedure* const a = context_.GetProcedure("a");
  EXPECT_EQ(a->GetStartLine(), 2u);
  EXPECT_EQ(a->GetEndLine(), 3u);
}

TEST_F(Compile, VariablesMayBeNamedLikeTheirType) {
  ASSERT_EQ(CompileText("struct Point\nint x\nendstruct\nstruct Two\nPoint point, Point2\n"
                        "Point[2] Points\nendstruct\nPoint point\nPoint[0x2] other\n"
                        "session Point kept\nextern Point Ext\nproc p(Point POINT, Point & b)\n"
                        "Point c\nfor (Point d; c.x; c.x += 1)\nPoint[3] e\nendfor\n"
                        "point = c\npoint.x = 1\nendproc\n"
                        "proc q()\nPoint[] poinT\npoint[1].x = 1\nPoint[1] f\nendproc\n")
                .code,
            0);
  EXPECT_EQ(Layout("p"), "P P L L E JF6 L E E S J-6 E V E E S");
  EXPECT_EQ(Layout("q"), "L E E S L");
}

TEST_F(Compile, ArraySizesAreIntegersOfAnyForm) {
  ASSERT_EQ(CompileText("const N = 0x4\nint[0x10] a\nint b[007], c[N]\n").code, 0);
  EXPECT_EQ(context_.GetVariable("a", VARLIST_GLOBAL)->GetElementCount(), 16u);
  EXPECT_EQ(context_.GetVariable("b", VARLIST_GLOBAL)->GetElementCount(), 7u);
  EXPECT_EQ(context_.GetVariable("c", VARLIST_GLOBAL)->GetElementCount(), 4u);
  context_.ResetContext();
  for (const char* size : {"-1", "1.5", "4294967295", "\"1\"", "'a'", "0x", "1e3"}) {
    EXPECT_EQ(CompileText("int[" + std::string(size) + "] a\n").code, ERR_VARNOCOMMA) << size;
    context_.ResetContext();
  }
}

// Refused where it stands, with the name of what has no value or of what should get it.
TEST_F(Compile, ProceduresWithoutResultHaveNoValue) {
  const std::string start =
      "proc p()\nendproc\nint n\nint[] l\narray g\nstruct S\nint[] m\nint i\nendstruct\nS s\n"
      "proc take(int i)\nendproc\n";
  const std::vector<std::pair<int32_t, std::vector<const char*>>> groups = {
      {ERR_ASSIGNMISMATCH,
       {"n = p()", "s.i = p()", "l[1] = p()", "g = p()", "l <<= p()", "g <<= p()", "s.m <<= p()",
        "g[1].m <<= p()", "return p()"}},
      {ERR_EXPREMPTY, {"n = (p())",       "n += p()",
                       "n += 1 + p()",    "l += p()",
                       "l -= p()",        "n = -p()",
                       "n = p() + 1",     "n = 1 + 2 * p()",
                       "n = p()[1]",      "n = p().i",
                       "n = l[p()]",      "l[p()] = 1",
                       "Print(p())",      "take(p())",
                       "p() + 1",         "call p()",
                       "if p()\nendif",   "if 0\nelif p()\nendif",
                       "while p()\nwend", "for (n = 0; p(); n += 1)\nendfor"}}};
  for (const auto& [code, bodies] : groups) {
    for (const char* body : bodies) {
      const Outcome outcome =
          CompileText(start + "int f()\n" + body + "\nreturn 1\nendproc\nproc main()\nendproc\n");
      EXPECT_EQ(outcome.code, code) << body;
      EXPECT_EQ(outcome.line, std::string_view(body).starts_with("if 0") ? 15u : 14u) << body;
      EXPECT_EQ(outcome.text == "p", code == ERR_EXPREMPTY) << body;
      context_.ResetContext();
    }
  }
  for (const char* line :
       {"int a = p()", "const c = p()", "const int c = p()", "session int a = p()", "include p()",
        "include \"\" + p()", "const c = 1, d = p()"}) {
    const Outcome outcome = CompileText(start + line + "\n");
    EXPECT_TRUE(outcome.code == ERR_EXPREMPTY || outcome.code == ERR_ASSIGNMISMATCH) << line;
    EXPECT_EQ(outcome.line, 13u) << line;
    context_.ResetContext();
  }
}

TEST_F(Compile, AFailedScriptKeepsNoText) {
  for (const char* text :
       {"proc a()\nbad\nendproc\n", "proc a()\nb()\nbad\nendproc\nproc b()\na()\nendproc\n",
        "int x\nproc a()\nendproc\nwrong\nproc b()\nendproc\n", "bad\n", "const c = nothing\n"}) {
    auto source = tamber::ScriptText::FromBuffer("test", text);
    const std::weak_ptr<const tamber::ScriptText> kept = source;
    auto script = std::make_unique<TamberScript>(&context_, std::move(source));
    tamber::CompilePlace place;
    EXPECT_FALSE(tamber::CompileScript(context_.State(), *script, place)) << text;
    script.reset();
    place = {};
    EXPECT_EQ(kept.expired(), context_.GetProcedure("a") == nullptr) << text;  // it compiled
    context_.ResetContext();
    EXPECT_TRUE(kept.expired()) << text;
  }
}

TEST_F(Compile, CallsOfWhatDidNotCompileFail) {
  const std::string calls = "proc a()\nb(1)\nendproc\n";
  EXPECT_EQ(CompileText(calls + "proc b(int n)\nb(n)\nbad\nendproc\n").code, ERR_BADSTATEMENT);
  EXPECT_EQ(context_.RunProcedure("a", nullptr), 0);
  EXPECT_EQ(context_.GetContextError(), ERR_PROCNOTFOUND);
  EXPECT_EQ(CompileText("proc b(int n)\nendproc\n").code, 0) << "the name is free";
  EXPECT_EQ(CompileText("bad\n" + calls).code, ERR_BADSTATEMENT);
}

TEST_F(Compile, IncludedScriptsAreLoadedOnce) {
  const std::string dir = testing::TempDir() + "includes/";
  std::filesystem::create_directories(dir);
  std::ofstream(dir + "a.tam") << "include \"b.tam\"\nproc a()\nb()\nendproc\n";
  std::ofstream(dir + "b.tam") << "include \"a.tam\"\nproc b()\na()\nendproc\n";
  EXPECT_EQ(CompileText("include \"a.tam\"\ninclude \"b.tam\"\n", KelString(dir + "main.tam")).code,
            0);
  EXPECT_EQ(Layout("a"), "E D");
  EXPECT_EQ(context_.GetScriptCount(), 2u);
  std::filesystem::remove_all(dir);
}

}  // namespace
