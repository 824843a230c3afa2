
#include "scriptrunner.h"
#include "values/errcodes.h"

namespace {

class Nested : public ScriptRunner {};

TEST_F(Nested, AHostThatRefusesToShowOutputEndsTheRun) {
  Put("called.tam", "int x\n");
  context_.SetOutputSink(
      [](std::string_view text, void*) {
        if (text.empty()) throw 1;
      },
      nullptr);
  EXPECT_EQ(Run("int after = 7\nproc main()\n  string s\n  s = \"a\" + after\n"
                "  call \"called.tam\"\nendproc\n"),
            0);
  EXPECT_EQ(context_.GetContextError(), ERR_INTERNAL);
  EXPECT_EQ(context_.GetDiagnostic().line, 5u);
  EXPECT_EQ(IntegerOf("after"), 7);
}

TEST_F(Nested, ScriptsThatCallThemselvesWithoutEndAreStopped) {
  Put("forever.tam", "Print(\"x\")\ncall \"forever.tam\"\n");
  ASSERT_EQ(context_.CompileScriptFile("forever.tam"), 1);
  EXPECT_EQ(context_.RunProcedure("main", nullptr), 0);
  EXPECT_EQ(Printed(), std::string(65, 'x'));
  EXPECT_EQ(context_.GetContextError(), ERR_INTERNAL);
}

}  // namespace
