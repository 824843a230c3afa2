#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "host/call.h"
#include "kel/tempdir.h"
#include "values/errcodes.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

class Stop : public TempDirTest {
 protected:
  /// Runs statements that never end by themselves, and stops them from another thread.
  void Interrupt(const std::string& procedures) {
    TamberContext context;
    KelString output;
    context.SetOutput(&output);
    const std::string count = "int n = 1\nint Count()\nn += 1\nreturn n\nendproc\n";
    ASSERT_NE(context.CompileScriptBuffer("endless", KelString(count + procedures), 1), 0);
    std::thread host([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
      context.RequestStop();
    });
    const auto start = Clock::now();
    Stack stack;
    EXPECT_EQ(context.RunProcedure("main", &stack), 0) << procedures;
    host.join();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(20)) << procedures;
    EXPECT_EQ(stack.GetSize(), 0u);
    EXPECT_EQ(context.GetContextError(), ERR_STOPPED) << procedures;
    EXPECT_EQ(context.GetDiagnostic().code, ERR_STOPPED);
    EXPECT_GT(context.GetDiagnostic().line, 1u) << procedures;
    EXPECT_TRUE(context.IsStopRequested());
    EXPECT_EQ(output.Str().find("late"), std::string::npos) << procedures;
    EXPECT_FALSE(fs::exists("tamber.log")) << procedures;
    EXPECT_EQ(Call<void>(context, "Count").Error().code, ERR_STOPPED) << "until it is taken back";
    context.CancelStop();
    EXPECT_EQ(context.GetContextError(), 0);
    EXPECT_EQ(Call<int32_t>(context, "Count").ValueOr(-1), 2) << procedures;
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
  EXPECT_EQ(context.RunProcedure("main", nullptr), 0);
  EXPECT_EQ(context.GetDiagnostic().name, "ERR_STOPPED");
}

TEST_F(Stop, IsReportedWhenAskedFor) {
  Put("own.ini", "[TamberRunErrors]\nReportStops=1\nOutputName=stops.log\n");
  TamberContext context;
  context.SetIniPath("own.ini");
  // An initialiser that is stopped fails the compilation.
  const auto stop = [](FunctionCallInfo* info, TamberContext* running) {
    running->RequestStop();
    info->stack->PushInteger(1);
    return 1;
  };
  context.RegisterFunction("int Stop ()", stop, FunctionList::FUNCTYPE_CONTEXT, false);
  EXPECT_EQ(context.CompileScriptBuffer("s", "int first\nint i = Stop()\n", 1), 0);
  EXPECT_EQ(context.GetContextError(), ERR_STOPPED);
  EXPECT_NE(Get("stops.log").find("ERR_STOPPED"), std::string::npos);
}

}  // namespace
