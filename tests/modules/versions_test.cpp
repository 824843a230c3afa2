#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "context/tambctxt.h"
#include "kel/pebuilder.h"
#include "kel/tempdir.h"

namespace tamber {
namespace {

namespace fs = std::filesystem;

/// What a script learns about Windows executables that the cross tools have made.
class VersionsTest : public TempDirTest {
 protected:
  /// Prints the value of an expression and the error that it leaves.
  std::string Eval(const std::string& expression) {
    KelString output;
    context_.ResetContext();
    context_.SetOutput(&output);
    const std::string script = "proc main()\nstring s\nErrHandler = INLINE_HANDLER\ns = \"\" + " +
                               expression + "\nPrint(s + \" \" + ErrCode)\nendproc\n";
    EXPECT_TRUE(context_.CompileScriptBuffer("eval", KelString(script), 1)) << script;
    context_.RunProcedure("main", nullptr);
    context_.FlushOutput();
    context_.SetOutput(nullptr);
    return output.Str();
  }

  bool Do(const std::string& command) {
    return std::system((tools_ + command + " 2>/dev/null").c_str()) == 0;
  }
  /// An executable that calls one function of each library; `resource` is the text of its
  /// resources.
  bool Build(const std::string& name, const std::string& resource) {
    const std::string prefix = tools_.starts_with("i686") ? "_" : "";  // as C names functions there
    Put("start.s",
        ".globl start\nstart:\n call " + prefix + "One\n call " + prefix + "Two\n ret\n");
    Put("first.def", "LIBRARY First.dll\nEXPORTS\nOne\n");
    Put("second.def", "LIBRARY second.dll\nEXPORTS\nTwo\n");
    Put("version.rc", resource);
    return Do("as start.s -o start.o") && Do("dlltool -d first.def -l first.a") &&
           Do("dlltool -d second.def -l second.a") &&
           (resource.empty() || Do("windres --preprocessor=cat version.rc version.o")) &&
           Do("ld -e start -o " + name + " start.o " + (resource.empty() ? "" : "version.o ") +
              "first.a second.a");
  }
  static std::string Resource(const std::string& table, const std::string& version,
                              const std::string& translation) {
    return "1 VERSIONINFO\nFILEVERSION 9,8,7,6\nPRODUCTVERSION 5,5,5,5\nBEGIN\n"
           "BLOCK \"StringFileInfo\"\nBEGIN\nBLOCK \"" +
           table +
           "\"\nBEGIN\n"
           "VALUE \"CompanyName\", \"Acme\"\nVALUE \"ProductVersion\", \"" +
           version +
           "\"\nVALUE \"FileVersion\", \"9.8.7.6\"\nEND\nEND\nBLOCK \"VarFileInfo\"\nBEGIN\n"
           "VALUE \"Translation\", " +
           translation + "\nEND\nEND\n";
  }

  void CheckExecutables() {
    if (!Do("ld --version >/dev/null") || !Do("windres --version >/dev/null")) {
      GTEST_SKIP() << "needs " << tools_ << "ld and windres";
    }
    ASSERT_TRUE(Build("four.exe", Resource("040904b0", "1, 2, 3, 4", "0x409, 1200")));
    EXPECT_EQ(Eval("FileHasVersionInfo(\"four.exe\")"), "TRUE 0");
    EXPECT_EQ(Eval("FileGetVersionH(\"four.exe\")"), "65538 0");
    EXPECT_EQ(Eval("FileGetVersionL(\"four.exe\")"), "196612 0");
    EXPECT_EQ(Eval("FileGetVersionValue(\"four.exe\", \"\", \"ProductVersion\")"), "1, 2, 3, 4 0");
    EXPECT_EQ(Eval("FileGetVersionValue(\"four.exe\", \"040904B0\", \"companyname\")"), "Acme 0");
    EXPECT_EQ(Eval("FileGetVersionValue(\"four.exe\", \"040704b0\", \"CompanyName\")"), " 0");
    EXPECT_EQ(Eval("ArrayGetSize(FileGetVersionLanguages(\"four.exe\"))"), "1 0");
    EXPECT_EQ(Eval("FileGetVersionLanguages(\"four.exe\")[1]"), "040904b0 0");
    EXPECT_EQ(Eval("FileGetModules(\"four.exe\", FALSE, FALSE)[1]"), "First.dll 0");
    EXPECT_EQ(Eval("FileGetModules(\"four.exe\", TRUE, TRUE)[2]"), "second.dll 0");
    EXPECT_EQ(Eval("ArrayGetSize(FileGetModules(\"four.exe\", FALSE, TRUE))"), "2 0");
    // German, and two translations of which the first has no strings of its own.
    ASSERT_TRUE(Build("seven.exe", Resource("040704e4", "7.1", "0x407, 1252, 0x40c, 1252")));
    EXPECT_EQ(Eval("FileGetVersionH(\"seven.exe\")"), "458753 0");
    EXPECT_EQ(Eval("FileGetVersionL(\"seven.exe\")"), "0 0");
    EXPECT_EQ(Eval("FileGetVersionLanguages(\"seven.exe\")[2]"), "040c04e4 0");
    ASSERT_TRUE(Build("usual.exe", Resource("040904E4", "2.0", "0x40c, 1252")));
    EXPECT_EQ(Eval("FileGetVersionH(\"usual.exe\")"), "131072 0");
    ASSERT_TRUE(Build("other.exe", Resource("040704e4", "2.0", "0x40c, 1252")));
    EXPECT_EQ(Eval("FileGetVersionH(\"other.exe\")"), "0 0");
    EXPECT_EQ(Eval("FileHasVersionInfo(\"other.exe\")"), "TRUE 0");
    ASSERT_TRUE(Build("none.exe", ""));
    EXPECT_EQ(Eval("FileHasVersionInfo(\"none.exe\")"), "FALSE 0");
    EXPECT_EQ(Eval("FileGetVersionH(\"none.exe\")"), "0 0");
    EXPECT_EQ(Eval("ArrayGetSize(FileGetVersionLanguages(\"none.exe\"))"), "0 0");
    // Beside the file a module is found in the spelling of the import or in lower case.
    fs::copy_file("none.exe", "first.dll");
    EXPECT_EQ(Eval("FileGetModules(\"./four.exe\", TRUE, TRUE)[1]"), "./first.dll 0");
  }

  TamberContext context_;
  std::string tools_;
};

TEST_F(VersionsTest, ExecutablesOf64Bits) {
  tools_ = "x86_64-w64-mingw32-";
  CheckExecutables();
}

TEST_F(VersionsTest, ExecutablesOf32Bits) {
  tools_ = "i686-w64-mingw32-";
  CheckExecutables();
}

TEST_F(VersionsTest, AResourceThatIsTooLarge) {
  Put("large.exe", pe::Image(std::string(17 << 20, 'x'), {"a.dll"}, true));
  EXPECT_EQ(Eval("FileHasVersionInfo(\"large.exe\")"), "FALSE 102");
  EXPECT_EQ(context_.GetContextErrorText().Str(), "large.exe");
  EXPECT_EQ(Eval("FileGetVersionH(\"large.exe\")"), "0 0");
  EXPECT_EQ(Eval("FileHasVersionInfo(\"no.exe\")"), "FALSE 103");
  EXPECT_EQ(Eval("FileGetVersionL(\"no.exe\")"), "0 103");
  EXPECT_EQ(context_.GetContextErrorText().Str(), "no.exe");
}

}  // namespace
}  // namespace tamber
