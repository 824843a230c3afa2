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
