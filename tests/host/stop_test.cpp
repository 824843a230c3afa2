#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "context/tambctxt.h"
#include "kel/tempdir.h"

namespace {

using Clock = std::chrono::steady_clock;

class Stop : public TempDirTest {
 protected:
  /// Runs statements that never end by themselves, and stops them from another thread.
  void Interrupt(const std::string& procedures) {
    TamberContext context;
    KelString output;
    context.SetOutput(&output);
    ASSERT_NE(context.CompileScriptBuffer("endless", KelString(procedures), 1), 0) << procedures;
    std::thread host([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
      context.RequestStop();
    });
    const auto start = Clock::now();
    Stack stack;
    EXPECT_EQ(context.RunProcedure("main", &stack), 1) << procedures;
    host.join();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(20)) << procedures;
    EXPECT_EQ(stack.GetSize(), 0u);
    EXPECT_EQ(context.GetContextError(), 0);
    EXPECT_EQ(output.Str().find("late"), std::string::npos) << procedures;
    EXPECT_EQ(context.RunProcedure("main", &stack), 1) << "nothing runs until the reset";
    context.ResetContext();
    ASSERT_NE(context.CompileScriptBuffer("b", "proc main()\nPrint(\"again\")\nendproc\n", 1), 0);
    EXPECT_EQ(context.RunProcedure("main", &stack), 1);
    EXPECT_EQ(output, "again");
  }
};

TEST_F(Stop, EndsWhateverRuns) {
  Interrupt("string main()\nstring s\ns = \"x\"\nwhile 1\ns = s + \"\"\nwend\nreturn s\nendproc\n");
  Interrupt("proc main()\nWait(1000000)\nPrint(\"late\")\nendproc\n");
  Interrupt(
      "int f(int n, string s)\nif n == 0\nreturn 1\nendif\n"
      "return f(n - 1, s + \"a\") + f(n - 1, s + \"b\")\nendproc\n"
      "proc main()\nf(60, \"text\")\nPrint(\"late\")\nendproc\n");
  Interrupt(
      "proc Handle()\nWait(1000000)\nendproc\nproc main()\nErrHandler = \"Handle\"\n"
      "int i\ni = 1 / i\nPrint(\"late\")\nendproc\n");
}

TEST_F(Stop, ReachesCalledScripts) {
  Put("called.tam", "proc main()\nwhile 1\nwend\nendproc\n");
  Interrupt("proc main()\ncall \"called.tam\"\nPrint(\"late\")\nendproc\n");
}

TEST_F(Stop, ComesBeforeTheRun) {
  TamberContext context;
  ASSERT_NE(context.CompileScriptBuffer("s", "proc main()\nwhile 1\nwend\nendproc\n", 1), 0);
  context.RequestStop();
  EXPECT_EQ(context.RunProcedure("main", nullptr), 1);
}

}  // namespace
