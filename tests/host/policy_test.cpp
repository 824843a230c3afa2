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
