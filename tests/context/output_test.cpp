#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "context/contextstate.h"
#include "frontend/scripttext.h"
#include "kel/notice.h"
#include "kel/tempdir.h"
#include "values/cellops.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Output : public TempDirTest {
 protected:
  void Ini(const std::string& text) { Put("tamber.ini", "[TamberDebug]\n" + text); }
  void AddInteger(const char* name, int32_t value) {
    Variable* variable = context_.GetType("int")->CreateVariable(name);
    variable->SetIntegerValue(value);
    context_.AddVariable(variable, VARLIST_GLOBAL);
  }
  std::string Dump() {
    std::filesystem::remove("tamber.log");
    context_.PerformDumps("TamberDebug", nullptr);
    return Get("tamber.log");
  }

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

TEST_F(Output, AFileThatCannotBeOpenedIsNoticed) {
  std::string notice;
  kel::SetNoticeHandler(
      [](void* user, const KelString& caption, const KelString& text) {
        *static_cast<std::string*>(user) = (caption + "|" + text).Str();
      },
      &notice);
  Ini("OutputName=no/such/dir.log\n");
  context_.OutputErrorText("TamberDebug", "lost");
  kel::SetNoticeHandler(nullptr, nullptr);
  EXPECT_EQ(notice, "no/such/dir.log|Internal Error: Failed to open output file");
  EXPECT_EQ(context_.GetContextError(), 0);
}

TEST_F(Output, StandardOutputByTypeAndByName) {
  testing::internal::CaptureStdout();
  Ini("OutputType=stdout\n");
  context_.OutputErrorText("TamberDebug", "a");
  Ini("OutputName=stdout\n");
  context_.OutputErrorText("TamberDebug", "b");
  context_.AppendOutput("c");
  context_.FlushOutput();
  KelString mine;
  context_.SetOutput(&mine);
  context_.AppendOutput("d");
  context_.FlushOutput();
  context_.SetOutput(nullptr);
  context_.AppendOutput("e");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "abce");
  EXPECT_EQ(mine, "d");
}

TEST_F(Output, DumpsOfVariables) {
  AddInteger("beta", 2);
  AddInteger("Alpha", 1);
  EXPECT_EQ(Dump(), "") << "by default nothing but source is dumped";
  Ini("DumpGlobals = BETA;nothing,alpha\n");
  std::string dump = Dump();
  EXPECT_THAT(dump,
              StartsWith("\r\nGlobal variable list dump: (limited by INI file settings) \r\n"));
  EXPECT_LT(dump.find("beta"), dump.find("Alpha")) << "in the order of the words";
  EXPECT_THAT(dump, Not(HasSubstr("LogFile")));
  Ini("DumpGlobals = alpha;*\n");
  dump = Dump();
  EXPECT_THAT(dump, StartsWith("\r\nGlobal variable list dump:\r\n"));
  EXPECT_LT(dump.find("Alpha"), dump.find("LogFile"));
  EXPECT_THAT(dump, HasSubstr("StrCase"));
  Ini("DumpLocals = *\nDumpConstants = true\n");
  dump = Dump();
  EXPECT_THAT(dump, Not(HasSubstr("Local"))) << "no procedure is running";
  EXPECT_THAT(dump, HasSubstr("\r\nConstants list dump: (limited by INI file settings) \r\nTRUE"));
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

TEST_F(Output, ProcessesShareAReportFile) {
  constexpr int kReports = 200;
  AddInteger("first", 1);
  AddInteger("last", 2);
  Ini("DumpGlobals=first,last\n");
  const std::string report = Dump();
  std::filesystem::remove("tamber.log");
  std::vector<pid_t> writers;
  for (int i = 0; i < 2; ++i) {
    writers.push_back(::fork());
    if (writers.back() != 0) continue;
    for (int n = 0; n < kReports; ++n) context_.PerformDumps("TamberDebug", nullptr);
    ::_exit(0);
  }
  for (const pid_t writer : writers) ::waitpid(writer, nullptr, 0);
  std::string expected;
  for (int n = 0; n < 2 * kReports; ++n) expected += report;
  EXPECT_EQ(Get("tamber.log"), expected);
}

TEST_F(Output, SourceAroundALine) {
  std::string text;
  for (int i = 1; i <= 30; ++i) text += "line" + std::to_string(i) + "%n%s\n";
  const auto source = tamber::ScriptText::FromBuffer("script", text);
  const auto dump = [&] {
    std::filesystem::remove("tamber.log");
    context_.State().PerformDumps("TamberDebug", {source, 15});
    return Get("tamber.log");
  };
  const std::string ten = dump();
  EXPECT_THAT(ten, HasSubstr("line10%n%s"));
  EXPECT_THAT(ten, HasSubstr("line20%n%s"));
  EXPECT_THAT(ten, Not(HasSubstr("line9%")));
  EXPECT_THAT(ten, Not(HasSubstr("line21")));
  Ini("DumpSource=-5\n");
  EXPECT_EQ(dump(), "");
  Ini("DumpSource=2147483647\n");
  EXPECT_THAT(dump(), HasSubstr("line30"));
}

}  // namespace
