// Scripts that no person would write: very deep, very long, without an end.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>

#include "tamber.h"
#include "values/errcodes.h"

namespace {

std::string Repeat(std::string_view text, size_t count) {
  std::string repeated;
  repeated.reserve(text.size() * count);
  for (size_t i = 0; i < count; ++i) repeated += text;
  return repeated;
}

/// `first`, then `rest` so many times.
std::string Chain(std::string_view first, std::string_view rest, size_t count) {
  return std::string(first) + Repeat(rest, count);
}

class Generated : public testing::Test {
 protected:
  Generated() {
    context_.SetOutput(&output_);
    context_.SetDiagnosticHandler(
        [](const TamberDiagnostic& error, void* user) {
          static_cast<Generated*>(user)->error_ = error.code;
        },
        this);
  }

  /// Compiles and runs a body of main; what it printed, or the error's code.
  std::string Run(const std::string& body, const std::string& others = "") {
    const std::string text = others + "proc main()\n" + body + "endproc\n";
    error_ = 0;
    output_.Clear();
    context_.ResetContext();
    if (context_.CompileScriptBuffer("generated", text, 1)) context_.RunProcedure("main", nullptr);
    return error_ != 0 ? std::to_string(error_) : output_.Str();
  }

  KelString output_;
  TamberContext context_;
  int32_t error_ = 0;
};

}  // namespace

TEST_F(Generated, ExpressionsAreAsDeepAsTheCompilerBears) {
  const std::string refused = std::to_string(ERR_EXPRBADFORMAT);
  const auto nested = [&](std::string_view open, std::string_view close, size_t depth) {
    return Run("int[] a\nint x\na += 1\na[1] = 1\nx = " + Repeat(open, depth) + "1" +
                   Repeat(close, depth) + "\nPrint(\"\" + x)\n",
               "int f(int n)\nreturn n\nendproc\n");
  };
  for (const auto& [open, close] : {std::pair("(", ")"), std::pair("f(", ")"), std::pair("a[", "]"),
                                    std::pair("-(", ")"), std::pair("Max(1, ", ")")}) {
    EXPECT_EQ(nested(open, close, 400), "1");
    EXPECT_EQ(nested(open, close, 100000), refused) << open;
  }
  EXPECT_EQ(nested("(", "", 100000), refused);
}

TEST_F(Generated, ChainsAreAsLongAsMemoryAllows) {
  EXPECT_EQ(Run("int x\nx = " + Chain("1", "+1", 499999) + "\nPrint(\"\" + x)\n"), "500000");
  EXPECT_EQ(Run("int x, y\ny = 1\nx = " + Chain("y", "+y", 99999) + "\nPrint(\"\" + x)\n"),
            "100000");
  EXPECT_EQ(Run("string s\ns = \"\" + " + Chain("1", "+s", 100000) + "\nPrint(s)\n"), "1");
  EXPECT_EQ(Run("string s\ns = s + " + Chain("1", "+2", 100000) + "\nPrint(\"\" + StrLen(s))\n"),
            "100001");
}

TEST_F(Generated, LongConditionsJump) {
  const std::string print = "\nPrint(\"yes\")\nelse\nPrint(\"no\")\nendif\n";
  const std::string start = "bool b\nint n\nb = TRUE\nif ";
  EXPECT_EQ(Run(start + Chain("b", " && b", 60000) + print), "yes");
  EXPECT_EQ(Run(start + Chain("b", " && b", 60000) + " && n" + print), "no");
  EXPECT_EQ(Run(start + Chain("n == 1", " || n == 1", 60000) + print), "no");
  EXPECT_EQ(Run(start + Chain("n == 1", " || n == 1", 60000) + " || b" + print), "yes");
  EXPECT_EQ(Run(start + "!(" + Chain("b", " && b", 9000) + ")" + print), "no");
  EXPECT_EQ(Run(start + Chain("b && n", " || b && n", 9000) + " || b" + print), "yes");
  EXPECT_EQ(Run(start + "(" + Chain("b || n", " && b", 9000) + ") && b" + print), "yes");
}

TEST_F(Generated, BlocksNestAThousandDeep) {
  EXPECT_EQ(Run(Repeat("if 1\n", 999) + "Print(\"in\")\n" + Repeat("endif\n", 999)), "in");
  EXPECT_EQ(Run(Repeat("while 1\n", 999) + "Print(\"in\")\nexit\n" + Repeat("wend\n", 999)), "in");
  const std::string refused = std::to_string(ERR_INTERNAL);
  EXPECT_EQ(Run(Repeat("if 1\n", 100000) + Repeat("endif\n", 100000)), refused);
  EXPECT_EQ(Run(Repeat("for (;;)\n", 100000) + Repeat("endfor\n", 100000)), refused);
  std::string branches = "int x\nx = 7\nif x == 1\n";
  for (int i = 0; i < 5000; ++i) branches += "elif x == " + std::to_string(i + 8) + "\n";
  EXPECT_EQ(Run(branches + "else\nPrint(\"else\")\nendif\n"), "else");
}

TEST_F(Generated, RecursionEndsBeforeTheStackDoes) {
  const std::string refused = std::to_string(ERR_NOMEMORY);
  // What the calls were about to take over is let go of.
  EXPECT_EQ(Run("int k\nk = Deep(\"a text that nobody else holds\" + k, k)\n",
                "int Deep(string s, int &k)\nk = k + 1\nreturn Deep(s, k)\nendproc\n"),
            refused);
  EXPECT_EQ(Run("Deep()\n", "int Deep()\nreturn StrEvalAsInteger(\"Deep()\")\nendproc\n"), refused);
  EXPECT_EQ(Run("int x\nErrHandler = \"Failing\"\nx = 1 / x\n",
                "proc Failing()\nint x\nx = 1 / x\nendproc\n"),
            refused);
}
