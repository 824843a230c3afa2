#include <gmock/gmock.h>

#include <filesystem>

#include "context/scriptrunner.h"
#include "kel/notice.h"

// The module counts its clean-ups here.
extern "C" TAMBER_API int cleanupCount;
int cleanupCount = 0;

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// box/ is what scripts may read and write, lib/ what they may read; outside/ they know nothing of.
class Policy : public ScriptRunner {
 protected:
  void SetUp() override {
    ScriptRunner::SetUp();
    for (const char* dir : {"box", "lib", "outside"}) fs::create_directory(dir);
    kel::SetNoticeHandler(
        [](void* user, const KelString& caption, const KelString& text) {
          *static_cast<std::string*>(user) += (caption + ": " + text).Str();
        },
        &notices_);
    context_.SetIniPath(KelString(dir_ + "/host.ini"));
    policy_.SetAccess(kel::Access::None);
    policy_.SetNetwork(false);
    ASSERT_TRUE(policy_.AddDirectory("box", kel::Access::Write));
    ASSERT_TRUE(policy_.AddDirectory("lib", kel::Access::Read));
    context_.SetFilePolicy(policy_);
  }
  void TearDown() override {
    kel::SetNoticeHandler(nullptr, nullptr);
    ScriptRunner::TearDown();
  }

  /// The error that a statement at the top of a script, or in its main procedure, leaves.
  int32_t ErrorOf(const std::string& top, const std::string& body) {
    context_.ResetContext();
    Run(top + "\nproc main()\nErrHandler = INLINE_HANDLER\n" + body +
        "\nPrint(\"\" + ErrCode)\nendproc\n");
    const std::string code = Printed();
    return code.empty() ? context_.GetContextError() : std::stoi(code);
  }

  kel::FilePolicy policy_;
  std::string notices_;
};

TEST_F(Policy, ACopyOfAContextIsNoFreerThanItsSource) {
  Put("lib/plain.tam", "proc main()\n  Print(\"\" + FileExists(\"outside\") + ErrCode)\nendproc\n");
  context_.SetScriptKey("key");
  ASSERT_NE(context_.EncryptScript("lib/plain.tam", "lib/sealed.tam", "key"), 0);
  TamberContext copy;
  copy = context_;
  copy.SetOutput(&output_);
  EXPECT_TRUE(copy.GetFilePolicy().Find("outside/x", kel::Access::Read).IsRefused());
  EXPECT_FALSE(copy.GetFilePolicy().AllowsNetwork());
  EXPECT_EQ(copy.CompileScriptFile("lib/sealed.tam"), 1);
}

TEST_F(Policy, ScriptsOutsideAreRefusedWhetherTheyExistOrNot) {
  const std::string text = "proc Helper()\nendproc\nproc main()\nPrint(\"called \")\nendproc\n";
  for (const char* file : {"outside/s.tam", "lib/s.tam", "box/s.tam", "s.tam"}) Put(file, text);
  fs::create_symlink("../outside/s.tam", "box/link.tam");
  fs::create_symlink("../outside/none.so", "box/link.so");
  for (const std::string name : {"outside/s", "outside/none", "s", "none", "box/link"}) {
    for (const std::string& path : {name + ".tam", dir_ + "/" + name + ".tam"}) {
      EXPECT_EQ(ErrorOf("include \"" + path + "\"", ""), 102) << path;
      EXPECT_THAT(ErrorText(), HasSubstr("Refused by the host's file policy: ")) << path;
      EXPECT_EQ(ErrorOf("", "call \"" + path + "\""), 102) << path;
    }
    EXPECT_EQ(ErrorOf("include \"" + name + ".so\"", ""), 102) << name;
  }
  EXPECT_EQ(ErrorOf("include \"lib/s.tam\"", "Helper()"), 20404) << "main is there twice";
  EXPECT_EQ(ErrorOf("include \"lib/none.tam\"", ""), 20118);
  EXPECT_EQ(ErrorOf("", "call \"box/none.tam\""), 103);
  context_.ResetContext();
  EXPECT_EQ(Run("proc main()\ncall \"box/s.tam\"\nendproc\n"), 1);
  EXPECT_EQ(Printed(), "called ");
}

TEST_F(Policy, LibrariesComeFromWhereScriptsMayNotWrite) {
  const fs::path module = fs::path(TEST_MODULES_DIR) / "netutil.so";
  fs::copy_file(module, "box/netutil.so");
  fs::copy_file(module, "lib/netutil.so");
  EXPECT_EQ(ErrorOf("include \"box/netutil.so\"", ""), 102);
  EXPECT_THAT(ErrorText(), HasSubstr("scripts may write"));
  EXPECT_TRUE(context_.LoadFunctionModule("lib/netutil.so", "", nullptr));
  // Even when it is but the network that they are kept from.
  kel::FilePolicy offline;
  offline.SetNetwork(false);
  context_.SetFilePolicy(offline);
  EXPECT_EQ(ErrorOf("include \"box/netutil.so\"", ""), 102);
}

TEST_F(Policy, LinksAreJudgedByWhereTheyLeadAfterTheirMove) {
  Put("outside/target.txt", "secret");
  fs::create_directories("box/a/b/tree");
  for (const char* link : {"box/a/tool", "box/a/b/tree/tool"})
    fs::create_symlink("../outside/target.txt", link);
  fs::create_symlink("b/tree", "box/a/inside");
  for (const std::string target : {"box/tool", "box/a/../tool"})
    EXPECT_EQ(ErrorOf("", "FileMove(\"box/a/tool\", \"" + target + "\")"), 102) << target;
  EXPECT_THAT(ErrorText(), HasSubstr("lead outside"));
  EXPECT_EQ(ErrorOf("", "DirMove(\"box/a/b/tree\", \"box/tree\")"), 0) << "box/outside/target.txt";
  EXPECT_EQ(ErrorOf("", "FileMove(\"box/tree/tool\", \"box/a/t\")"), 0);
  EXPECT_EQ(ErrorOf("", "FileMove(\"box/a/t\", \"box/t\")"), 102);
  EXPECT_EQ(ErrorOf("", "FileMove(\"box/a/inside\", \"box/inside\")"), 0) << "leads nowhere";
  for (const char* dir : {"box/p", "box/q", "box/up/tree"}) fs::create_directories(dir);
  fs::create_symlink("../a", "box/p/x");
  fs::create_symlink("x/../../outside/target.txt", "box/q/later");
  EXPECT_EQ(ErrorOf("", "FileMove(\"box/q/later\", \"box/p/later\")"), 102) << "by way of x";
  fs::create_symlink("../../../outside/target.txt", "box/up/tree/tool");
  EXPECT_EQ(ErrorOf("", "DirMove(\"box/up\", \"box/down\")"), 102) << "it leads outside already";
}

TEST_F(Policy, TheHostsPathsStayWhereScriptsCannotMoveThem) {
  // A script that may write nothing moves the process and fails: its report is the host's.
  kel::FilePolicy reading;
  reading.SetAccess(kel::Access::Read);
  context_.SetFilePolicy(reading);
  Put("host.ini", "[TamberRunErrors]\nDumpSource=5\n");
  TamberContext second;
  second.SetIniPath("host.ini");
  second.SetFilePolicy(reading);
  Run("proc main()\n  DirSetCurrent(\"outside\")\n  int i\n  i = 1 / i\nendproc\n");
  fs::rename(dir_ + "/outside", dir_ + "/renamed");
  second.SetSessionId(3);
  second.CompileScriptBuffer("s", "session int n\nproc main()\nendproc\n", 1);
  EXPECT_NE(second.SaveSession(), 0);
  EXPECT_EQ(second.CompileScriptFile("lib/none.tam"), 0);
  EXPECT_THAT(second.GetDiagnostic().detail.Str(), HasSubstr(dir_ + "/lib/none.tam"));
  EXPECT_TRUE(fs::is_empty("."));
  fs::current_path(dir_);
  EXPECT_THAT(Get("tamber.log"), HasSubstr("ERR_DIVIDEBYZERO"));
  EXPECT_TRUE(fs::exists("TamberSessions"));
}

TEST_F(Policy, ALinkInPlaceOfAFileOfTheHostLeadsNowhere) {
  // As a script could move it there.
  Put("outside/target", "untouched");
  Put("outside/own.ini", "[TamberRunErrors]\nOutputName=" + dir_ + "/outside/chosen\n");
  for (const char* name : {"box/tamber.log", "box/TamberSessions"})
    fs::create_symlink("../outside/target", name);
  fs::create_symlink("../outside/own.ini", "box/tamber.ini");
  fs::current_path("box");
  TamberContext context;
  context.SetIniPath("tamber.ini");
  context.SetFilePolicy(policy_);
  context.OutputErrorText("TamberRunErrors", "report");
  context.SetSessionId(1);
  fs::current_path(dir_);
  EXPECT_EQ(Get("outside/target"), "untouched");
  EXPECT_FALSE(fs::exists("outside/chosen"));
  EXPECT_THAT(notices_, HasSubstr("tamber.log: Refused by the host's file policy"));
  EXPECT_THAT(context.GetSessionFault().Str(), HasSubstr("refuse"));
}

TEST_F(Policy, WhatTheProcessIsCanBeHidden) {
  setenv("TAMBER_TEST_SECRET", "s", 1);
  const std::string see = "Print(StrExpandEnvString(\"%TAMBER_TEST_SECRET%\"))";
  const auto prints = [&](const std::string& body) {
    context_.ResetContext();
    Run("proc main()\nErrHandler = INLINE_HANDLER\n" + body + "\nendproc\n");
    return Printed();
  };
  EXPECT_EQ(prints(see), "s");
  EXPECT_EQ(ErrorOf("", "DirGetCurrent()"), 0);
  policy_.SetEnvironment(false);
  policy_.SetDirectoryName(false);
  context_.SetFilePolicy(policy_);
  EXPECT_EQ(prints(see), "%TAMBER_TEST_SECRET%");
  EXPECT_EQ(ErrorOf("", "DirGetCurrent()"), 102);
  EXPECT_EQ(ErrorOf("", "CompletePath(\"x\")"), 102);
  EXPECT_EQ(ErrorOf("", "CompletePath(\"/x\")"), 0);
  kel::FilePolicy reading;
  for (const bool visible : {true, false}) {
    reading.SetProcesses(visible);
    context_.SetFilePolicy(reading);
    for (const std::string path : {"/proc/self/environ", "/dev/fd/0", "/proc/self/root/etc/passwd"})
      EXPECT_EQ(ErrorOf("", "FileGetSize(\"" + path + "\")") == 102, !visible) << path;
  }
}

TEST_F(Policy, ReportsGoWhereTheHostSaysOrTheScriptMayWrite) {
  const auto report = [this](const char* logFile) {
    notices_.clear();
    context_.GetVariable("LogFile", VARLIST_GLOBAL)->SetStringValue(KelString(logFile));
    context_.OutputErrorText("TamberRunErrors", "report");
  };
  Put("host.ini", "[TamberRunErrors]\nOutputType=var\n");
  report("outside/x");
  EXPECT_FALSE(fs::exists("outside/x"));
  EXPECT_THAT(notices_, HasSubstr("outside/x: Refused by the host's file policy"));
  report("box/x");
  EXPECT_EQ(Get("box/x"), "report");
  context_.SetScriptFile("outside/script.tam", 1);
  report("outside/script.log");
  EXPECT_EQ(Get("outside/script.log"), "report") << "named by the host";
  Put("host.ini", "[TamberRunErrors]\nOutputName=outside/y\n");
  report("");
  EXPECT_EQ(Get("outside/y"), "report") << "the host's configuration";
  // A configuration that scripts may write is as confined as they are.
  Put("box/tamber.ini", "[TamberRunErrors]\nOutputName=outside/z\n");
  context_.SetIniPath("box/tamber.ini");
  report("");
  EXPECT_FALSE(fs::exists("outside/z"));
  EXPECT_THAT(notices_, HasSubstr("Refused"));
  Put("box/tamber.ini", "[TamberConfig]\nSessionFile=" + dir_ + "/outside/sessions\n");
  context_.SetSessionId(1);
  EXPECT_FALSE(fs::exists("outside/sessions"));
  EXPECT_TRUE(fs::exists("box/TamberSessions"));
}

}  // namespace
