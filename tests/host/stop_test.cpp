#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <future>
#include <thread>

#include "host/call.h"
#include "host/register.h"
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

constexpr const char* kNumbers =
    "int a[]\na += 8000000\nfor (i = 1; i <= 8000000; i += 1)\na[i] = i * 7919\nendfor\n";
constexpr const char* kTexts =
    "string a[]\na += 300000\nfor (i = 1; i <= 300000; i += 1)\na[i] = \"\" + i\nendfor\n";
constexpr const char* kText =
    "t = \"word, and a + 1;\"\nfor (i = 1; i <= 22; i += 1)\nt += t\nendfor\n";
constexpr const char* kSum = "t = \"1\"\nfor (i = 1; i <= 600000; i += 1)\nt += \"+1\"\nendfor\n";

TEST_F(Stop, ComesToAllThatTakesLong) {
  struct Case {
    const char* before;  ///< not counted
    const char* work;    ///< takes many seconds when it is not stopped
  };
  const Case cases[] = {
      {kNumbers, "while 1\na = ArraySort(a, (i % 2) == 0)\ni += 1\nwend\n"},
      {kNumbers, "while 1\na = ArrayRemoveDup(a)\nwend\n"},
      {kNumbers, "while 1\ni = ArrayFind(a, 5.5, 1)\nwend\n"},
      {"", "estring e[]\ne += 100000000\n"},
      {kTexts,
       "string b[]\nwhile 1\nb = a\nb[1] = \"\"\nb -= 299000 - i % 2 * 298900\ni += 1\nwend\n"},
      {kText, "while 1\nt = t + \"\"\nwend\n"},
      {kText, "string b[]\nwhile 1\nb = StrTokenise(t, \" \")\nwend\n"},
      {kText, "while 1\nt = StrToLower(t)\nwend\n"},
      {kText, "while 1\nt = StrDecodeBase64(StrEncodeBase64(t))\nwend\n"},
      {kText, "while 1\nt = ConvertFromHex(ConvertToHex(t))\nwend\n"},
      {kText, "while 1\nStrEscapeHtml(t)\nwend\n"},
      {kText, "while 1\ni = StrFind(t, \"absent, and long enough for a folded copy\")\nwend\n"},
      {kText, "bool c\nwhile 1\nc = CompareVersions(t, \"<\", t)\nwend\n"},
      {kSum, "while 1\ni = MakeInt(t)\nwend\n"},
  };
  for (const Case& each : cases) {
    std::string work = each.work;
    std::promise<void> begun;
    TamberContext context;
    RegisterFunction(context, "int Begin ()", [&] {
      begun.set_value();
      return 1;
    });
    const std::string script = std::string("proc main()\nint i\nstring t\n") + each.before +
                               "Begin()\n" + work + "endproc\n";
    ASSERT_NE(context.CompileScriptBuffer("long", KelString(script), 1), 0) << work;
    Clock::time_point asked;
    std::thread host([&] {
      begun.get_future().wait();
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      asked = Clock::now();
      context.RequestStop();
    });
    EXPECT_EQ(context.RunProcedure("main", nullptr), 0) << work;
    host.join();
    EXPECT_LT(Clock::now() - asked, std::chrono::seconds(2)) << work;
    EXPECT_EQ(context.GetContextError(), ERR_STOPPED) << work;
  }
}

/// Computing time of this thread, whatever else the machine does.
std::chrono::milliseconds Computed(clockid_t thread) {
  timespec time{};
  ::clock_gettime(thread, &time);
  return std::chrono::milliseconds(time.tv_sec * 1000 + time.tv_nsec / 1'000'000);
}

TEST_F(Stop, ComesToLargeStringsWhateverTheyStandFor) {
  clockid_t running{};
  ASSERT_EQ(::pthread_getcpuclockid(::pthread_self(), &running), 0);
  for (const char* use :
       {"i = Defined(t)", "i = FileGetSize(t)", "u = MakeStr(1, t)", "i = EvalStr(t)",
        "u = StrReplacePcre(\"a\", \"a\", t, true)", "call t"}) {
    std::promise<void> begun;
    TamberContext context;
    RegisterFunction(context, "int Begin ()", [&] {
      begun.set_value();
      return 1;
    });
    const std::string script =
        std::string("proc main()\nErrHandler = INLINE_HANDLER\nint i\nstring t\nstring u\n") +
        kText + "Begin()\nwhile 1\n" + use + "\nwend\nendproc\n";
    ASSERT_NE(context.CompileScriptBuffer("large", KelString(script), 1), 0) << use;
    std::chrono::milliseconds asked{};
    std::thread host([&] {
      begun.get_future().wait();
      std::this_thread::sleep_for(std::chrono::milliseconds(25));
      asked = Computed(running);
      context.RequestStop();
    });
    EXPECT_EQ(context.RunProcedure("main", nullptr), 0) << use;
    const auto ended = Computed(running);
    host.join();
    EXPECT_LT(ended - asked, std::chrono::milliseconds(100)) << use;
    EXPECT_EQ(context.GetContextError(), ERR_STOPPED) << use;
  }
}

TEST_F(Stop, LeavesNothingHalfChanged) {
  // The stop is there when the work begins, so that its first look ends it.
  TamberContext context;
  RegisterFunction(context, "int Stop ()", [&] {
    context.RequestStop();
    return 1;
  });
  const std::string script =
      "string t = \"x\"\nint a[]\nproc main()\nint i\nfor (i = 1; i <= 23; i += 1)\nt += "
      "t\nendfor\n"
      "a += 3\na[3] = 7\nendproc\n"
      "proc Longer()\nt += StrLeft(t, StrLen(t) - Stop())\nendproc\n"
      "proc Larger()\na += Stop() * 100000000\nendproc\n"
      "int Sum()\nreturn StrLen(t) - 8388608 + ArrayGetSize(a) + a[3]\nendproc\n";
  ASSERT_NE(context.CompileScriptBuffer("whole", KelString(script), 1), 0);
  ASSERT_NE(context.RunProcedure("main", nullptr), 0);
  for (const char* change : {"Longer", "Larger"}) {
    EXPECT_EQ(context.RunProcedure(change, nullptr), 0) << change;
    EXPECT_EQ(context.GetContextError(), ERR_STOPPED);
    context.CancelStop();
    EXPECT_EQ(Call<int32_t>(context, "Sum").ValueOr(-1), 10) << change;
  }
}

TEST_F(Stop, EndsCompiling) {
  std::string script;
  for (int i = 0; i < 150'000; ++i)
    script += "int f" + std::to_string(i) + "(int n)\nint m\nm = n * 2\nreturn m\nendproc\n";
  for (const int delay : {0, 30, 150}) {
    TamberContext context;
    std::thread host([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(delay));
      context.RequestStop();
    });
    EXPECT_EQ(context.CompileScriptBuffer("many", KelString(script), 1), 0);
    host.join();
    EXPECT_EQ(context.GetContextError(), ERR_STOPPED) << delay;
    context.CancelStop();
    EXPECT_NE(context.CompileScriptBuffer("one", KelString("int f1()\nreturn 1\nendproc\n"), 1), 0);
    EXPECT_EQ(Call<int32_t>(context, "f1").ValueOr(-1), 1) << "nothing stays of what was stopped";
  }
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
  // Each further call says so as well.
  EXPECT_EQ(context.CompileScriptBuffer("more", "int y = 5\n", 1), 0);
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
