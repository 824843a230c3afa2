#include <memory>

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

TEST_F(Nested, SeesCopiesOfWhatTheParentHas) {
  context_.RegisterErrorCode(700, "ERR_MINE", "mine");
  context_.SetCaseSwitch(1);
  TamberContext child(context_);
  EXPECT_EQ(child.GetContextError(), 0);
  EXPECT_EQ(child.GetScriptCount(), 0u);
  EXPECT_EQ(child.GetErrorName(700), "ERR_MINE");
  EXPECT_EQ(child.GetCaseSwitch(), 1);
  EXPECT_EQ(child.GetIniPath(), context_.GetIniPath());
  EXPECT_EQ(IntegerOf(child, "count"), 5);
  EXPECT_EQ(IntegerOf(child, "Limit"), 3);
  EXPECT_GE(child.FindVariable("outside", VARLIST_EXTERNAL), 0);
  EXPECT_EQ(child.GetVariable("note", VARLIST_GLOBAL)->GetVarFlags(), Variable::Session);
  EXPECT_EQ(child.GetVariable("ErrCode", VARLIST_GLOBAL)->GetVarFlags(), Variable::Predefined);
  EXPECT_NE(child.Lookup("Point"), nullptr);
  Stack stack;
  stack.PushInteger(21);
  EXPECT_EQ(child.RunProcedure("twice", &stack), 1);
  EXPECT_EQ(stack.PopInteger(), 42);
  EXPECT_EQ(child.RunProcedure("main", nullptr), 0) << "the parent's main is the parent's";
  EXPECT_EQ(child.GetContextError(), ERR_PROCNOMAIN);
}

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

TEST_F(Nested, AChildOfAChildAndAResetChild) {
  TamberContext child(context_);
  TamberContext grandchild(child);
  EXPECT_EQ(IntegerOf(grandchild, "count"), 5);
  grandchild.GetVariable("count", VARLIST_GLOBAL)->SetIntegerValue(6);
  EXPECT_EQ(IntegerOf(child, "count"), 5);
  grandchild.ResetContext();
  EXPECT_EQ(grandchild.FindVariable("count", 15), -1);
  EXPECT_EQ(grandchild.FindProcedure("twice"), 0u);
  EXPECT_EQ(grandchild.CompileScriptBuffer("x", "int count = 1\nproc main()\nendproc\n", 1), 1);
  EXPECT_EQ(grandchild.RunProcedure("main", nullptr), 1);
}

}  // namespace
