#include <gmock/gmock.h>

#include "scriptrunner.h"
#include "values/errcodes.h"

namespace {

class Compiling : public ScriptRunner {
 protected:
  int32_t CompileFile(const std::string& path) { return context_.CompileScriptFile(path); }
};

TEST_F(Compiling, AFailedScriptIsNotInTheList) {
  Put("bad.tam", "proc first()\nendproc\nproc main()\nx = 1\nendproc\n");
  EXPECT_EQ(CompileFile("bad.tam"), 0);
  EXPECT_EQ(context_.GetContextError(), ERR_BADSTATEMENT);
  EXPECT_EQ(IntegerOf("ErrLine"), 4);
  EXPECT_EQ(context_.GetScriptCount(), 0u);
  EXPECT_NE(context_.FindProcedure("first"), 0u) << "what was declared before stays";
  Put("bad.tam", "proc second()\nendproc\n");
  EXPECT_EQ(CompileFile("bad.tam"), 1) << "and may be mended and compiled";
}

// Files fail at the first error that a value leaves; texts report it and go on.
TEST_F(Compiling, RunTimeErrorsOfInitialisers) {
  struct Row {
    const char* values;
    int32_t code;
    int32_t line;
  };
  const std::string procedures =
      "int Fails(int n)\nn = 1 / (n - n)\nreturn n\nendproc\n"
      "int Own()\nErrHandler = \"main\"\nreturn 1\nendproc\nproc main()\nendproc\n";
  constexpr int32_t kStart = 11;
  for (const Row& row : {Row{"int a = LeaveError(102)\nint b = Max(1, 2)\n", 102, 0},
                         Row{"int a, b = 1\n\nint c = 7 / 0, d = 1\n", 11, 2},
                         Row{"const a = LeaveError(102)\nint b = 1\n", 102, 0},
                         Row{"int[] l\nint a = l[4]\nint b = 1\n", 12, 1},
                         Row{"int a = Fails(2)\nint b = 1\n", 11, 2 - kStart},
                         Row{"int a = Own()\nint c = 7 / 0\nint b = 1\n", 11, 1}}) {
    const std::string text = procedures + row.values;
    for (const bool isFile : {true, false}) {
      SCOPED_TRACE(row.values);
      TamberContext context;
      TamberDiagnostic told;
      context.SetDiagnosticHandler(
          [](const TamberDiagnostic& error, void* kept) {
            EXPECT_EQ(std::exchange(*static_cast<TamberDiagnostic*>(kept), error).code, 0);
          },
          &told);
      Put("left.tam", text);
      const int32_t compiled = isFile ? context.CompileScriptFile("left.tam")
                                      : context.CompileScriptBuffer("left", text, 1);
      EXPECT_EQ(compiled, isFile ? 0 : 1);
      EXPECT_EQ(context.GetScriptCount(), isFile ? 0u : 1u);
      EXPECT_EQ(told.code, row.code);
      EXPECT_EQ(told.line, static_cast<uint32_t>(kStart + row.line));
      EXPECT_EQ(IntegerOf(context, "ErrLine"), kStart + row.line);
      const bool before = std::string_view(row.values).starts_with("int a, b");
      EXPECT_EQ(context.GetVariable("b", VARLIST_GLOBAL) != nullptr, !isFile || before);
    }
  }
}

}  // namespace
