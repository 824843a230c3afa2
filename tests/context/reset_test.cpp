#include "scriptrunner.h"
#include "values/errcodes.h"

namespace {

class Reset : public ScriptRunner {};

constexpr const char* kScript =
    "struct Point\nint x\nendstruct\nconst int Limit = 3\nint count = 5\nextern int outside\n"
    "proc main()\nPoint p\ncount += 1\nErrHandler = \"Mine\"\nStrCase = 1\nIntBase = 0\n"
    "Print(\"ran\")\nexit\nendproc\n";

TEST_F(Reset, ForgetsTheScriptAndKeepsThePredefined) {
  ASSERT_EQ(Run(kScript), 1);
  context_.SetContextError(101, "stale");
  context_.ResetContext();
  EXPECT_EQ(context_.GetContextError(), 0);
  EXPECT_EQ(ErrorText(), "");
  EXPECT_EQ(context_.GetProcedureCount(), 0u);
  EXPECT_EQ(context_.GetScriptCount(), 0u);
  for (const char* gone : {"count", "Limit", "outside"}) EXPECT_FALSE(Knows(gone, 15)) << gone;
  EXPECT_EQ(context_.Lookup("Point"), nullptr);
  EXPECT_EQ(context_.Lookup("Point[]"), nullptr);
  EXPECT_NE(context_.Lookup("string[]"), nullptr);
  for (const char* kept : {"ErrCode", "TRUE", "ERR_DIVIDEBYZERO", "ERR_SUCCESS"})
    EXPECT_TRUE(Knows(kept, 15)) << kept;
  EXPECT_NE(context_.FindFunction("Max"), 0u);
  EXPECT_EQ(TextOf("ErrHandler"), "DEFAULT_HANDLER")
      << "a policy of the old script would end the next";
  EXPECT_EQ(TextOf("ScriptFile"), "");
  EXPECT_EQ(TextOf("LogFile"), "");
  EXPECT_EQ(IntegerOf("StrCase"), 0);
  EXPECT_EQ(IntegerOf("IntBase"), 1);
  Printed();
  ASSERT_EQ(Run(kScript), 1) << "all its names are free again, and its exit is forgotten";
  EXPECT_EQ(Printed(), "ran");
}

}  // namespace
