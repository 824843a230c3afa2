// What a trace counts, and what a dump of the locals shows, whatever runs underneath.
#include <gmock/gmock.h>

#include <regex>
#include <string>

#include "kel/tempdir.h"
#include "tamber.h"

namespace {

class Traced : public TempDirTest {
 protected:
  /// Runs a script under these settings; the reports, without their times.
  static std::string Run(const std::string& settings, const std::string& script) {
    Put("tamber.ini", settings);
    Put("reports", "");
    TamberContext context;
    KelString output;
    context.SetOutput(&output);
    context.SetIniPath("tamber.ini");
    if (context.CompileScriptBuffer("traced", script, 1)) context.RunProcedure("main", nullptr);
    return std::regex_replace(Get("reports"), std::regex(", total time [0-9.]+ ms"), "");
  }
  static std::string Trace(const std::string& script) {
    return Run("[TamberDebug]\nProcedureTrace=1\nOutputType=file\nOutputName=reports\n", script);
  }
  /// The dump of the locals that comes with the report of an error.
  static std::string Locals(const std::string& script) {
    const std::string report =
        Run("[TamberRunErrors]\nOutputType=file\nOutputName=reports\nDumpLocals=*\nDumpSource=0\n",
            script);
    const size_t dump = report.find("Local variable list dump:");
    return dump == std::string::npos ? report : report.substr(dump);
  }
};

}  // namespace

TEST_F(Traced, CountsWhatRan) {
  EXPECT_EQ(Trace("proc main()\nendproc\n"),
            "Entering main\r\nLeaving main, executed 0 statements\r\n");
  // A declaration, three assignments of two statements each, seven for the loop's two rounds.
  EXPECT_THAT(Trace("proc main()\nint i\nfor (i = 0; i < 2; i += 1)\nendfor\nendproc\n"),
              testing::HasSubstr("executed 15 statements"));
  EXPECT_EQ(Trace("int F(int a, string b)\nreturn a\nendproc\n"
                  "proc main()\nint[] a\na += F(2, \"x\")\na[1] = 5\nendproc\n"),
            "Entering main\r\nEntering F\r\nLeaving F, executed 4 statements\r\n"
            "Leaving main, executed 7 statements\r\n");
}

TEST_F(Traced, CountsOnlyToTheExit) {
  EXPECT_EQ(
      Trace("int Q()\nexit\nreturn 1\nendproc\nproc main()\nint i\ni = Q() + 1\ni = 2\nendproc\n"),
      "Entering main\r\nEntering Q\r\nLeaving Q, executed 1 statements\r\n"
      "Leaving main, executed 2 statements\r\n");
  EXPECT_THAT(Trace("int Q()\nexit\nreturn 1\nendproc\nproc main()\nif Q() == 1\nendif\nendproc\n"),
              testing::HasSubstr("Leaving main, executed 1 statements"));
  EXPECT_THAT(Trace("int Q()\nexit\nreturn 1\nendproc\n"
                    "proc main()\nint[] a\na += 1\na[1] = Q()\nendproc\n"),
              testing::HasSubstr("Leaving main, executed 6 statements"));
}

TEST_F(Traced, CountsWhatIsPassedOverAfterAnError) {
  // The store finds nothing to store, but it runs.
  EXPECT_THAT(
      Trace("proc main()\nint x\nint[] a\nErrHandler = INLINE_HANDLER\nx = a[1]\nendproc\n"),
      testing::HasSubstr("Leaving main, executed 6 statements"));
  // A procedure that an error ended does not leave.
  EXPECT_EQ(Trace("proc main()\nint x\nx = 1 / x\nendproc\n"), "Entering main\r\n");
}

TEST_F(Traced, LocalsAreShownAsTheyAre) {
  // Parameters come last one first; what has not been declared is not there, and a value that the
  // error kept from being stored has not been stored.
  const std::string own = Locals(
      "proc P(int a, string b)\nint before, zero\nbefore = 7\nbefore = 1 + 1 / zero\nint after\n"
      "endproc\nproc main()\nP(1, \"two\")\nendproc\n");
  const size_t b = own.find("\nb:"), a = own.find("\na:"), before = own.find("\nbefore:");
  EXPECT_LT(b, a) << own;
  EXPECT_LT(a, before) << own;
  EXPECT_EQ(own.find("after"), std::string::npos) << own;
  EXPECT_THAT(own, testing::HasSubstr("before: type=integer, value=7"));
}
