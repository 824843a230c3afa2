#include <vector>

#include "scriptrunner.h"
#include "values/errcodes.h"

namespace {

class Reports : public ScriptRunner {
 protected:
  void SetUp() override {
    ScriptRunner::SetUp();
    context_.SetDiagnosticHandler(
        [](const TamberDiagnostic& told, void* user) {
          static_cast<Reports*>(user)->told_.push_back(told);
        },
        this);
  }
  std::vector<TamberDiagnostic> told_;
};

TEST_F(Reports, AParseErrorByteForByte) {
  Put("tamber.ini", "[TamberParseErrors]\nOutputPrefix=<<<\nOutputSuffix=>>>\nDumpSource=2\n");
  EXPECT_EQ(Compile("proc main()\nint i\ni = nosuch + 100%s\nendproc\n"), 0);
  EXPECT_EQ(Get("tamber.log"),
            "<<<\r\n"
            "Fatal parse or run time error ERR_EXPRBADTOKEN in file\r\n"
            "test.tam, line 3\r\n"
            "Unrecognised token in expression: nosuch\r\n"
            "\r\nScript source dump:\r\n"
            "   int i\r\n>>>i = nosuch + 100%s\r\n   endproc\r\n"
            ">>>\r\n");
  EXPECT_EQ(context_.GetContextError(), ERR_EXPRBADTOKEN) << "left as it is";
  EXPECT_EQ(IntegerOf("ErrCode"), ERR_EXPRBADTOKEN);
  EXPECT_EQ(IntegerOf("ErrLine"), 3);
  ASSERT_EQ(told_.size(), 1u);
  EXPECT_EQ(told_[0].code, ERR_EXPRBADTOKEN);
  EXPECT_EQ(told_[0].name, "ERR_EXPRBADTOKEN");
  EXPECT_EQ(told_[0].text, "Unrecognised token in expression");
  EXPECT_EQ(told_[0].detail, "nosuch");
  EXPECT_EQ(told_[0].file, "test.tam");
  EXPECT_EQ(told_[0].line, 3u);
  EXPECT_EQ(told_[0].sourceLine, "i = nosuch + 100%s");
}

TEST_F(Reports, ARunTimeErrorByteForByte) {
  Put("tamber.ini", "[TamberRunErrors]\nDumpSource=1\nDumpGlobals=a,b;nosuch\n");
  EXPECT_EQ(Run("int a = 1\nint b = 2\nproc main()\nint i\ni = 5\ni = 7 / (i - 5)\nendproc\n"), 0);
  EXPECT_EQ(Get("tamber.log"),
            "\r\n"
            "Run time error ERR_DIVIDEBYZERO in file\r\n"
            "test.tam, line 6\r\n"
            "Divide by zero error\r\n"
            "\r\nScript source dump:\r\n>>>i = 7 / (i - 5)\r\n"
            "\r\nGlobal variable list dump: (limited by INI file settings) \r\n"
            "a: type=integer, value=1\r\nb: type=integer, value=2\r\n"
            "\r\n");
  EXPECT_EQ(context_.GetContextError(), 0) << "cleared by its report";
  EXPECT_EQ(IntegerOf("ErrCode"), 11);
  EXPECT_EQ(IntegerOf("ErrLine"), 6);
  ASSERT_EQ(told_.size(), 1u);
  EXPECT_EQ(told_[0].name, "ERR_DIVIDEBYZERO");
}

TEST_F(Reports, OnceForAFatalErrorHoweverDeep) {
  EXPECT_EQ(Run("proc inner()\nint i\nErrHandler = \"nosuch\"\ni = 1 / 0\nendproc\n"
                "proc middle()\ninner()\nPrint(\"no\")\nendproc\n"
                "proc main()\nmiddle()\nPrint(\"no\")\nendproc\n"),
            0);
  EXPECT_EQ(told_.size(), 1u);
  Put("in.tam", "proc broken()\nx = 1\nendproc\n");
  Put("out.tam", "include \"in.tam\"\nproc main()\nendproc\n");
  told_.clear();
  context_.ResetContext();
  EXPECT_EQ(context_.CompileScriptFile("out.tam"), 0);
  ASSERT_EQ(told_.size(), 1u);
  EXPECT_EQ(told_[0].file, dir_ + "/in.tam");
  EXPECT_EQ(told_[0].line, 2u);
  EXPECT_EQ(IntegerOf("ErrLine"), 2);
}

class Policies : public Reports {};

TEST_F(Policies, InlineLeavesNoErrorBehind) {
  EXPECT_EQ(Run("int i\nErrHandler = INLINE_HANDLER\ni = 1 / 0\n"), 1);
  EXPECT_EQ(context_.GetContextError(), 0);
  EXPECT_EQ(IntegerOf("ErrCode"), ERR_DIVIDEBYZERO);
  EXPECT_TRUE(told_.empty());
}

TEST_F(Policies, HandlersTakeNoArguments) {
  EXPECT_EQ(Run("proc Takes(int i)\nendproc\nproc main()\nErrHandler = \"Takes\"\nint i\n"
                "i = 1 / 0\nendproc\n"),
            0);
  EXPECT_EQ(context_.GetContextError(), ERR_PROCPARMCOUNT);
}

}  // namespace
