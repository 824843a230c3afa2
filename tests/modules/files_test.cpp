#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "context/handletable.h"
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
        "proc main()\nTextFileHandle h\nFileFindInfo f\nint i\nbool b\n"
        "string s\nErrHandler = INLINE_HANDLER\n" +
        statements + "\nendproc\n";
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
  Confine(true, true);
  for (const char* call : {"FileExists(\"secret\")",
                           "FileIsText(\"box/link\")",
                           "FileCopy(\"secret\", \"box/x\")",
                           "FileCopy(\"box/own\", \"x\")",
                           "FileMove(\"secret\", \"box/x\")",
                           "FileMove(\"box/own\", \"x\")",
                           "FileDelete(\"secret\", TRUE)",
                           "FileCreate(\"x\")",
                           "FileAddLine(\"x\", \"y\")",
                           "FileCompare(\"box/own\", \"secret\")",
                           "FileSetMode(\"secret\", 0)",
                           "FileHasVersionInfo(\"secret\")",
                           "DirCreate(\"x\")",
                           "DirDelete(\"../x\", TRUE)",
                           "DirExists(\"/etc\")",
                           "PathCreate(\"x/y\")",
                           "DirSetCurrent(\"/\")",
                           "FileConvertToUTF8(\"secret\", \"1252\")",
                           "FileDelete(\"box/sub/../../secret\", TRUE)",
                           "FileDelete(\"file:///etc/passwd\")"}) {
    EXPECT_EQ(Eval(call), "FALSE 102") << call;
    EXPECT_TRUE(context_.GetContextErrorText().View().starts_with("Refused by the host's")) << call;
  }
  EXPECT_EQ(Eval("FileCompress(\"secret\", \"box/x\")"), "-1 102");
  EXPECT_EQ(Eval("FileToString(\"secret\", TRUE)"), " 102");
  EXPECT_EQ(Eval("FileToString(\"box/own\", TRUE)"), "own 0");
  EXPECT_EQ(Eval("FileCopy(\"box/own\", \"box/sub/copy\")"), "TRUE 0");
  EXPECT_EQ(Get("secret"), "secret");
  Confine(false, false);
  EXPECT_EQ(Eval("FileCopy(\"http://u:pw@127.0.0.1:1/x\", \"box/x\")"), "FALSE 102");
  EXPECT_EQ(context_.GetContextErrorText().View().find("pw"), std::string_view::npos);
}

TEST_F(FilesTest, HandlesThatAreNone) {
  Put("a.txt", "one\n");
  EXPECT_EQ(Eval("FileGetLineCount(h)"), "0 107");
  EXPECT_EQ(Eval("FileFindNext(f)"), " 107");
  EXPECT_EQ(
      Run("h = FileTextOpen(\"a.txt\")\nPrint(\"\" + FileTextClose(h))\nb = FileTextClose(h)\n"
          "Print(\"\" + b + ErrCode)\nPrint(\" [\" + FileGetLine(h, 1) + \"]\" + FileAddLine(h, "
          "\"x\"))"),
      "TRUEFALSE107 []FALSE");
  // A handle of another context is as good as none, even one whose number is in use here.
  TamberContext other;
  const int32_t id = other.Handles().Add(std::make_unique<int>(1), "kind");
  EXPECT_EQ(context_.Handles().Find<int>(id, "kind"), nullptr);
  EXPECT_EQ(other.Handles().Find<int>(id, "another kind"), nullptr);
  EXPECT_FALSE(other.Handles().Release(id, "another kind"));
  // Left open, and changed: dropped unsaved when the context is reset.
  Run("h = FileTextOpen(\"a.txt\")\nb = FileDeleteLine(h, 1)\nf = FileFindOpen(\"*\")");
  context_.ResetContext();
  EXPECT_EQ(Get("a.txt"), "one\n");
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
  EXPECT_EQ(about("FileCopy(\"file\", \"none/file\")"), "FALSE 105 none/file");
  EXPECT_EQ(about("FileCopy(\"none/file\", \"file\")"), "FALSE 103 none/file");
  EXPECT_EQ(about("FileCompare(\"dir\", \"file\")"), "FALSE 104 dir");
  EXPECT_EQ(about("FileCompare(\"file\", \"dir\")"), "FALSE 104 dir");
  EXPECT_EQ(about("FileCompress(\"file\", \"none/file\")"), "-1 102 none/file");
  EXPECT_EQ(about("FileDecompress(\"file\", \"out\")"), "-1 102 file");
  // A file that is there but cannot be written anew is not missing.
  const std::string made = "/proc/self/status";
  EXPECT_EQ(about("FileConvertToCodePage(\"" + made + "\", \"1252\")"), "FALSE 112 " + made);
}

TEST_F(FilesTest, PatternsMatchWholeNames) {
  for (const char* name : {"a", "ab", "abc", "b"}) Put(name, "");
  const auto count = [&](const std::string& pattern) {
    return Eval("ArrayGetSize(FileFindPcre(\"" + pattern + "\", \"\", TRUE))");
  };
  EXPECT_EQ(count("a|b"), "2 0");
  EXPECT_EQ(count("(?x) a b # two letters"), "1 0");
  EXPECT_EQ(count("\\\\Qab"), "1 0");
  EXPECT_EQ(count("a.*?"), "3 0");
  EXPECT_EQ(count("(?:(?:a|b|c)*)*"), "4 0");
  for (const char* malformed : {"(", "b)|(?:a.*", "a)", "[", "*"}) {
    EXPECT_EQ(count(malformed), "0 101") << malformed;
  }
}

/// Calls a function in a place where a file system of a few pages is mounted for it alone; false
/// where the machine does not allow that.
template <class Body>
bool OnSmallDisk(const std::string& dir, Body body) {
  const pid_t child = ::fork();
  if (child == 0) {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", dir.c_str(), "tmpfs", 0, "size=64k") != 0) {
      ::_exit(77);
    }
    fs::current_path(dir);
    body();
    ::_exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  const bool skipped = WIFEXITED(status) && WEXITSTATUS(status) == 77;
  EXPECT_TRUE(status == 0 || skipped);
  return !skipped;
}

TEST_F(FilesTest, AFullDiskLosesNothing) {
  fs::create_directory("disk");
  Put("large", std::string(200000, 'x'));
  std::string random(200000, '\0');
  std::ifstream("/dev/urandom", std::ios::binary).read(random.data(), 200000);
  Put("random", random);
  const bool done = OnSmallDisk("disk", [&] {
    const std::string old = std::string(30000, 'o') + "\n";
    Put("file", old);
    Put("half", std::string(20000, 'h'));
    EXPECT_EQ(Eval("FileCopy(\"../large\", \"new\")"), "FALSE 112");
    EXPECT_EQ(Eval("FileCopy(\"../large\", \"file\", TRUE)"), "FALSE 112");
    EXPECT_EQ(context_.GetContextErrorText().Str(), "file");
    EXPECT_EQ(Eval("FileMove(\"../large\", \"new\")"), "FALSE 102");
    EXPECT_EQ(Eval("FileCompress(\"../random\", \"new\")"), "-1 102");
    EXPECT_EQ(Eval("FileInsertLine(\"file\", 1, \"line\")"), "FALSE 112");
    EXPECT_EQ(Eval("FileDeleteLine(\"half\", 1)"), "TRUE 0");
    EXPECT_EQ(Eval("FileConvertToCodePage(\"file\", \"1200\")"), "FALSE 112");
    EXPECT_EQ(Eval("FileAddLine(\"file\", FileToString(\"../large\", FALSE))"), "FALSE 102");
    EXPECT_EQ(Run("h = FileTextOpen(\"file\")\nb = FileAddLine(h, FileToString(\"../large\", "
                  "FALSE))\nb = FileTextClose(h)\nPrint(\"\" + b + ErrCode)"),
              "FALSE112");
    EXPECT_EQ(Get("file"), old);
    EXPECT_EQ(std::distance(fs::directory_iterator("."), fs::directory_iterator()), 2);
  });
  EXPECT_EQ(fs::file_size("large"), 200000U);
  if (!done) GTEST_SKIP() << "may not mount a small disk here";
}

}  // namespace
}  // namespace tamber
