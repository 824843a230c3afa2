
#include "scriptrunner.h"
#include "values/errcodes.h"

namespace {

class Nested : public ScriptRunner {
 protected:
  void SetUp() override {
    ScriptRunner::SetUp();
    ASSERT_EQ(Compile("struct Point\nint x\nendstruct\nconst int Limit = 3\nint count = 5\n"
                      "session string note = \"n\"\nextern int outside\n"
                      "int twice(int n)\nreturn n + n\nendproc\nproc main()\nendproc\n"),
              1);
    context_.SetContextError(101, "parent's");
  }
};

TEST_F(Nested, MayDeclareEverythingAnew) {
  TamberContext child(context_);
  EXPECT_EQ(child.CompileScriptBuffer(
                "child",
                "struct Point\nstring label\nendstruct\nconst string Limit = \"new\"\n"
                "double count = 0.5\nint twice(int n)\nreturn n * 3\nendproc\n"
                "proc main()\nPoint p\np.label = Limit\n"
                "Print(p.label + count + \" \" + twice(2))\nendproc\n",
                1),
            1)
      << child.GetContextError() << " " << child.GetContextErrorText().GetString();
  EXPECT_EQ(child.RunProcedure("main", nullptr), 1);
  EXPECT_EQ(Printed(), "new0.5 6") << "prints go to the parent's buffer";
  EXPECT_EQ(IntegerOf("count"), 5) << "and the parent's names stay as they were";
  EXPECT_EQ(context_.Lookup("Point")->GetVariable()->GetStructElement("label"), nullptr);
  Stack stack;
  stack.PushInteger(2);
  EXPECT_EQ(context_.RunProcedure("twice", &stack), 1);
  EXPECT_EQ(stack.PopInteger(), 4);
  // Twice in the child itself is once too often.
  EXPECT_EQ(child.CompileScriptBuffer("more", "int count\n proc more()\nendproc\n", 1), 0);
  EXPECT_EQ(child.GetContextError(), ERR_VAREXISTS);
}

TEST_F(Nested, ScriptsThatCallThemselvesWithoutEndAreStopped) {
  context_.ResetContext();
  Put("forever.tam", "Print(\"x\")\ncall \"forever.tam\"\n");
  ASSERT_EQ(context_.CompileScriptFile("forever.tam"), 1);
  EXPECT_EQ(context_.RunProcedure("main", nullptr), 0);
  EXPECT_EQ(Printed(), std::string(65, 'x'));
  EXPECT_EQ(context_.GetContextError(), ERR_INTERNAL);
}

}  // namespace
