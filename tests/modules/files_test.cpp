#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "context/tambctxt.h"
#include "kel/filepolicy.h"
#include "kel/tempdir.h"
#include "kel/testserver.h"

namespace tamber {
namespace {

namespace fs = std::filesystem;

class FilesTest : public TempDirTest {
 protected:
  /// Runs statements with errors left to the script, and gives what they print.
  std::string Run(const std::string& statements) {
    KelString output;
    context_.SetOutput(&output);
    const std::string script =
        "proc main()\nstring s\nErrHandler = INLINE_HANDLER\n" + statements + "\nendproc\n";
    const KelString name(std::to_string(++scripts_));
    context_.ResetContext();
    EXPECT_TRUE(context_.CompileScriptBuffer(name, KelString(script), 1)) << script;
    context_.RunProcedure(KelString("main"), nullptr);
    context_.FlushOutput();
    context_.SetOutput(nullptr);
    return output.Str();
  }
  /// What an expression gives, and the error that it leaves.
  std::string Eval(const std::string& expression) {
    return Run("s = \"\" + " + expression + "\nPrint(s + \" \" + ErrCode)");
  }
  void Confine(bool toBox, bool network) {
    kel::FilePolicy policy;
    if (toBox) {
      policy.SetAccess(kel::Access::None);
      ASSERT_TRUE(policy.AddDirectory("box", kel::Access::Write));
    }
    policy.SetNetwork(network);
    context_.SetFilePolicy(policy);
  }

  TamberContext context_;
  int scripts_ = 0;
};

TEST_F(FilesTest, AHostConfinesItsScripts) {
  fs::create_directories("box/sub");
  Put("secret", "secret");
  Put("box/own", "own");
  fs::create_symlink("../secret", "box/link");
  fs::create_symlink("..", "box/out");
  Confine(true, true);
  const auto refused = [this](std::initializer_list<const char*> calls) {
    for (const char* call : calls) {
      EXPECT_EQ(Eval(call), "FALSE 102") << call;
      EXPECT_TRUE(context_.GetContextErrorText().View().starts_with("Refused by the host's"))
          << call;
    }
  };
  refused({"FileExists(\"secret\")", "FileIsText(\"box/link\")", "FileCopy(\"secret\", \"box/x\")",
           "FileCopy(\"box/own\", \"x\")", "FileMove(\"secret\", \"box/x\")",
           "FileMove(\"box/own\", \"x\")", "FileDelete(\"secret\", TRUE)", "FileCreate(\"x\")",
           "FileAddLine(\"x\", \"y\")", "FileCompare(\"box/own\", \"secret\")"});
  refused({"FileSetMode(\"secret\", 0)", "FileHasVersionInfo(\"secret\")", "DirCreate(\"x\")",
           "DirDelete(\"../x\", TRUE)", "DirDelete(\"box/out\")", "DirExists(\"/etc\")",
           "PathCreate(\"x/y\")", "DirSetCurrent(\"/\")", "FileConvertToUTF8(\"secret\", \"1252\")",
           "FileDelete(\"box/sub/../../secret\", TRUE)", "FileDelete(\"file:///etc/passwd\")"});
  EXPECT_EQ(Eval("FileCompress(\"secret\", \"box/x\")"), "-1 102");
  EXPECT_EQ(Eval("FileToString(\"secret\", TRUE)"), " 102");
  EXPECT_EQ(Eval("FileToString(\"box/own\", TRUE)"), "own 0");
  EXPECT_EQ(Eval("FileCopy(\"box/own\", \"box/sub/copy\")"), "TRUE 0");
  EXPECT_EQ(Get("secret"), "secret");
  Confine(false, false);
  EXPECT_EQ(Eval("FileCopy(\"http://u:pw@127.0.0.1:1/x\", \"box/x\")"), "FALSE 102");
  EXPECT_EQ(context_.GetContextErrorText().View().find("pw"), std::string_view::npos);
}

TEST_F(FilesTest, AnErrorNamesTheFileThatItIsAbout) {
  fs::create_directory("dir");
  Put("file", "text");
  const auto about = [&](const std::string& call) {
    const std::string result = Eval(call);
    return result + " " + context_.GetContextErrorText().Str();
  };
  EXPECT_EQ(about("FileCopy(\"file\", \"dir\", TRUE)"), "FALSE 104 dir");
  EXPECT_EQ(about("FileCopy(\"dir\", \"file\", TRUE)"), "FALSE 104 dir");
  EXPECT_EQ(about("FileCopy(\"file\", \"none/file\")"),
            "FALSE 105 none/file: No such file or directory");
  EXPECT_EQ(about("FileCopy(\"none/file\", \"file\")"), "FALSE 103 none/file");
  EXPECT_EQ(about("FileCompare(\"dir\", \"file\")"), "FALSE 104 dir");
  EXPECT_EQ(about("FileCompare(\"file\", \"dir\")"), "FALSE 104 dir");
  EXPECT_EQ(about("FileCompress(\"file\", \"none/file\")"),
            "-1 102 none/file: No such file or directory");
  EXPECT_EQ(about("FileDecompress(\"file\", \"out\")"), "-1 102 file");
  EXPECT_EQ(about("FileGetLine(\"file\", 99)"), " 101 file: line 99");
  EXPECT_EQ(about("FileConvertToUTF8(\"file\", \"none\")"), "FALSE 101 none");
  Put("b\xFF", "");
  Put("b\xC3\xA9", "");
  EXPECT_EQ(about("ArrayGetSize(FileFindPcre(\"./b.*\", \"1252\", TRUE))"), "1 0 ");
  // A file that is there but cannot be written anew is not missing.
  const std::string made = "/proc/self/status";
  EXPECT_EQ(about("FileConvertToCodePage(\"" + made + "\", \"1252\")"),
            "FALSE 112 " + made + ": No such file or directory");
}

TEST_F(FilesTest, AMoveThatTheServerDoesNotFinishLeavesNothing) {
  Put("kept", "contents");
  Put("file", "contents");
  const TestServer server("http_server.py", {});
  ASSERT_TRUE(server.IsUp());
  const std::string root = "\"http://127.0.0.1:" + server.Port() + "/";
  const auto move = [&](const std::string& name) {
    return Run("FileMove(" + root + name + "\", \"moved\")\nPrint(GetErrorName(ErrCode))");
  };
  EXPECT_EQ(move("kept"), "FILENET_ERR_DELFILE");
  EXPECT_FALSE(fs::exists("moved"));
  Put("limits.ini", "[TamberConfig]\nTransferSize = 1\n");
  Put("kept", std::string(1025, 'x'));
  context_.SetIniPath("limits.ini");
  EXPECT_EQ(move("kept"), "FILENET_ERR_GETFILE");
  context_.SetTransferLimits(0, 7);
  EXPECT_EQ(move("file"), "FILENET_ERR_GETFILE");
  context_.SetTransferLimits(0, 8);
  context_.SetIniPath("limits.ini");
  EXPECT_EQ(move("file"), "");
  EXPECT_EQ(Get("moved"), "contents");
}

}  // namespace
}  // namespace tamber
