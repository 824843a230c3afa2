#include <gmock/gmock.h>

#include <filesystem>

#include "context/tambctxt.h"
#include "kel/tempdir.h"
#include "values/cellops.h"

namespace {

using testing::EndsWith;

class Output : public TempDirTest {
 protected:
  void Ini(const std::string& text) { Put("tamber.ini", "[TamberDebug]\n" + text); }

  TamberContext context_;
};

TEST_F(Output, GoesWhereTheSectionSays) {
  context_.OutputErrorText("TamberDebug", "%S %d\r\n", KelString("one"), 1);
  context_.OutputErrorText("TamberDebug", "two\r\n");
  EXPECT_EQ(Get("tamber.log"), "one 1\r\ntwo\r\n") << "always appended";
  for (const char* type : {"none", "NONE", "", "foo"}) {
    Ini(std::string("OutputType=") + type + "\nOutputName=x.log\nDumpGlobals=*\n");
    context_.OutputErrorText("TamberDebug", "three");
    context_.PerformDumps("TamberDebug", nullptr);
    EXPECT_FALSE(std::filesystem::exists("x.log")) << type;
  }
  Ini("OutputType = FILE\nOutputName = y.log\n");
  context_.OutputErrorText("TamberDebug", "four");
  EXPECT_EQ(Get("y.log"), "four");
  Ini("OutputType=var\n");
  context_.OutputErrorText("TamberDebug", "nowhere: LogFile is empty");
  context_.GetVariable("LogFile", VARLIST_GLOBAL)->SetStringValue(KelString("v.log"));
  context_.OutputErrorText("TamberDebug", "five");
  EXPECT_EQ(Get("v.log"), "five");
  context_.OutputErrorText("TamberRunErrors", "six");
  EXPECT_THAT(Get("tamber.log"), EndsWith("six")) << "another section keeps its defaults";
}

int32_t AddLocal(FunctionCallInfo* info) {
  Variable* added = info->context->GetType("int")->CreateVariable("added");
  added->SetIntegerValue(3);
  info->context->AddVariable(added, VARLIST_LOCAL);
  info->stack->PushInteger(0);
  return 1;
}

TEST_F(Output, LocalsOfTheScriptAndOfTheHost) {
  context_.RegisterFunction("int AddLocal ()", AddLocal, FunctionList::FUNCTYPE_NORMAL, false);
  const char* script =
      "struct P\nint x\nstring[] names\nendstruct\n"
      "proc show(char c, estring& e)\nbool b\nb = TRUE\nP p\np.names += 1\np.names[1] = \"q'\"\n"
      "AddLocal()\nDebugDump(\"TamberDebug\")\nint undeclared\nendproc\n"
      "proc main()\nestring s\nshow('A', s)\nendproc\n";
  Ini("DumpLocals=*\n");
  context_.SetIniPath("tamber.ini");
  ASSERT_NE(context_.CompileScriptBuffer("s", script, 1), 0);
  ASSERT_EQ(context_.RunProcedure("main", nullptr), 1);
  EXPECT_EQ(Get("tamber.log"),
            "\r\nLocal variable list dump:\r\n"
            "e: type=estring, value=\r\n"
            "c: type=char, value=65\r\n"
            "b: type=bool, value=TRUE\r\n"
            "p: type=struct P, value:\r\n"
            "    x: type=integer, value=0\r\n"
            "    names: type=string, elements=1\r\n"
            "        [1]: type=string, value=q\\'\r\n"
            "added: type=integer, value=3\r\n");
}

}  // namespace
