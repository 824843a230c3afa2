#include "values/limits.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

#include "kel/tempdir.h"
#include "tamber.h"
#include "tamber_c.h"

namespace {

constexpr const char* kScript =
    "string kept\n"
    "proc Nop()\nendproc\n"
    "int Turns(int n)\n  int i, s\n  for (i = 1; i <= n; i += 1)\n    s += i\n  endfor\n"
    "  return n\nendproc\n"
    "int Calls(int n)\n  int i\n  while i < n\n    i += 1\n    Nop()\n  wend\n  return i\nendproc\n"
    "int Deep(int n)\n  if n <= 0\n    return 0\n  endif\n  return Deep(n - 1) + 1\nendproc\n"
    "int Evaluates(int n)\n  if n <= 0\n    return 0\n  endif\n"
    "  return EvalStr(\"Evaluates(\" + (n - 1) + \")\") + 1\nendproc\n"
    "int Prints(int n)\n  int i\n  for (i = 1; i <= n; i += 1)\n    Print(\"x\")\n  endfor\n"
    "  return n\nendproc\n"
    "int Grows(int n)\n  string s\n  int i\n  for (i = 1; i <= n; i += 1)\n    s += \"x\"\n"
    "  endfor\n  return StrLen(s)\nendproc\n"
    "int Fills(int n)\n  int[] a\n  int i\n  for (i = 1; i <= n; i += 1)\n    a <<= i\n  endfor\n"
    "  return ArrayGetSize(a)\nendproc\n"
    "int Resizes(int n)\n  string[] a\n  a += n\n  return ArrayGetSize(a)\nendproc\n"
    "int Keeps(int n)\n  int i\n  for (i = 1; i <= n; i += 1)\n    kept += \"0123456789\"\n  "
    "endfor\n"
    "  return StrLen(kept)\nendproc\n"
    "int Handled(int n)\n  ErrHandler = \"INLINE_HANDLER\"\n  return Deep(n)\nendproc\n"
    "int Rest(int n)\n  return 7 % n\nendproc\n";

class LimitsTest : public TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    context_.SetDefaultReports(false);
    context_.SetOutput(&output_);
    Compile(kScript);
  }
  void Compile(const std::string& text) {
    ASSERT_TRUE(context_.CompileScriptBuffer("test", KelString(text), 1))
        << context_.GetDiagnostic().text.Str() << context_.GetDiagnostic().line;
  }
  void Limit(std::string_view limits) {
    TamberLimits all;
    ASSERT_EQ(all.SetAll(limits), "");
    context_.SetLimits(all);
  }
  /// The value, or the name of the error and its detail.
  static std::string Of(TamberContext& context, const char* procedure, int32_t n) {
    const auto done = Call<int32_t>(context, procedure, n);
    if (done) return std::to_string(done.Value());
    return done.Error().name.Str() + " " + done.Error().detail.Str();
  }
  std::string Of(const char* procedure, int32_t n) { return Of(context_, procedure, n); }

  KelString output_;
  TamberContext context_;
};

TEST_F(LimitsTest, EachIsExactAndHasItsError) {
  struct Case {
    const char* limits;
    const char* procedure;
    int32_t most;
    const char* error;
  };
  const Case cases[] = {
      {"steps=100", "Turns", 100, "ERR_STEPLIMIT steps=100"},
      {"steps=100", "Calls", 50, "ERR_STEPLIMIT steps=100"},
      {"steps=1", "Deep", 1, "ERR_STEPLIMIT steps=1"},
      {"depth=20", "Deep", 19, "ERR_DEPTHLIMIT depth=20"},
      {"depth=20", "Handled", 18, "ERR_DEPTHLIMIT depth=20"},
      {"evaluations=5", "Evaluates", 5, "ERR_EVALUATIONLIMIT evaluations=5"},
      {"output=30", "Prints", 30, "ERR_OUTPUTLIMIT output=30"},
      {"string=1K", "Grows", 1024, "ERR_STRINGLIMIT string=1024"},
      {"array=1000", "Fills", 1000, "ERR_ARRAYLIMIT array=1000"},
      {"array=1000", "Resizes", 1000, "ERR_ARRAYLIMIT array=1000"},
  };
  for (const Case& each : cases) {
    Limit(each.limits);
    for (int round = 0; round < 2; ++round) {  // what ended one run does not end the next
      EXPECT_EQ(Of(each.procedure, each.most), std::to_string(each.most)) << each.limits;
      EXPECT_EQ(Of(each.procedure, each.most + 1), each.error) << each.procedure;
      EXPECT_FALSE(context_.IsStopRequested());
    }
    Limit("");
    EXPECT_EQ(Of(each.procedure, each.most + 1), std::to_string(each.most + 1));
  }
  EXPECT_GT(TamberLimits().SetAll("steps=1,bytes=2").size(), 0);
}

TEST_F(LimitsTest, MemoryIsCountedAsItIsMadeAndGivenBack) {
  Limit("memory=1M");
  EXPECT_EQ(Of("Keeps", 10000), "100000");
  EXPECT_EQ(Of("Keeps", 100000), "ERR_MAXMEMORYEXCEED memory=1048576");
  EXPECT_EQ(Of("Fills", 1000000), "ERR_MAXMEMORYEXCEED memory=1048576") << "what is kept counts";
  EXPECT_EQ(Of("Deep", 100000), "ERR_MAXMEMORYEXCEED memory=1048576");
  EXPECT_LE(context_.GetUsage().peakMemory, 1048576);
  EXPECT_GT(context_.GetUsage().memory, 100000);
  context_.ResetContext();
  EXPECT_LT(context_.GetUsage().memory, 100000);
  Compile(kScript);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Of("Fills", 100000), "100000");
  EXPECT_GT(context_.GetUsage().peakMemory, 400000);
  EXPECT_LT(context_.GetUsage().memory, 200000);
}

TEST_F(LimitsTest, TimeEndsWhatRunsAndWhatWaits) {
  Compile("proc Loop()\n  while TRUE\n  wend\nendproc\nproc Waits()\n  Sleep(60000)\nendproc\n");
  Limit("time=30ms");
  for (const char* procedure : {"Loop", "Waits", "Loop"}) {
    const auto before = std::chrono::steady_clock::now();
    const auto done = Call(context_, procedure);
    EXPECT_EQ(done.Error().name.Str() + done.Error().detail.Str(), "ERR_TIMELIMITtime=30");
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
    EXPECT_EQ(Of("Turns", 10), "10");
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(Of("Turns", 10), "10") << "the time of a run that has ended ends no other";
  context_.RequestStop();
  EXPECT_EQ(Call(context_, "Loop").Error().name, "ERR_STOPPED");
  context_.CancelStop();
  EXPECT_EQ(Of("Turns", 10), "10");
}

TEST_F(LimitsTest, ScriptsThatAreCalledShareThem) {
  Put("called.tam", "proc main()\n  int i\n  while i < 60\n    i += 1\n  wend\nendproc\n");
  Put("self.tam", "proc main()\n  call \"self.tam\"\nendproc\n");
  Compile(
      "proc Twice()\n  call \"called.tam\"\n  call \"called.tam\"\nendproc\n"
      "proc Self()\n  call \"self.tam\"\nendproc\n");
  Limit("steps=100");
  EXPECT_EQ(Call(context_, "Twice").Error().name, "ERR_STEPLIMIT");
  Limit("steps=200,scripts=3");
  EXPECT_TRUE(Call(context_, "Twice").IsOk());
  EXPECT_EQ(Call(context_, "Self").Error().detail, "scripts=3");
}

TEST_F(LimitsTest, ProgressMayStopARun) {
  int told = 0;
  context_.SetProgress(10, 0, [&](TamberContext& context) {
    if (++told == 3) {
      EXPECT_EQ(Of(context, "Turns", 4), "4") << "a run within";
    }
    return told < 5;
  });
  EXPECT_EQ(Of("Turns", 40), "40");
  EXPECT_EQ(told, 4);
  EXPECT_EQ(Of("Deep", 40), "ERR_STOPPED ");
  context_.CancelStop();
  context_.SetProgress(7, 0, [](TamberContext&) -> bool { throw std::runtime_error("enough"); });
  EXPECT_EQ(Of("Deep", 40), "ERR_INTERNAL enough");
  EXPECT_EQ(Of("Turns", 40), "ERR_INTERNAL enough");
  context_.SetProgress(0, 1, [](TamberContext&) { return false; });
  EXPECT_EQ(Of("Turns", 2000000000), "ERR_STOPPED ");
  context_.CancelStop();
  context_.SetProgress(1, 1, nullptr);
  EXPECT_EQ(Of("Turns", 40), "40");
}

TEST_F(LimitsTest, UsageIsTheSameForTheSameRun) {
  TamberLimits limits;
  limits.measured = true;
  context_.SetLimits(limits);
  std::vector<uint64_t> steps;
  for (bool trace : {false, false, true}) {
    context_.SetProcedureTrace(trace);
    context_.SetReportSink([](const KelString&, std::string_view, void*) { return true; }, nullptr);
    EXPECT_EQ(Of("Calls", 5), "5");
    EXPECT_EQ(context_.GetUsage().steps, 10);
    EXPECT_EQ(Of("Prints", 3), "3");
    EXPECT_EQ(context_.GetUsage().output, 3);
  }
  EXPECT_GT(context_.GetUsage().reports, 0);
  EXPECT_GT(context_.GetUsage().nanoseconds, 0);
}

TEST_F(LimitsTest, ContextsOfAProgramHaveThem) {
  Limit("steps=50");
  context_.SetRemainderFault(false);
  TamberContext context(context_.Freeze());
  EXPECT_EQ(Of(context, "Turns", 51), "ERR_STEPLIMIT steps=50");
  EXPECT_EQ(Of(context, "Rest", 0), "ERR_DIVIDEBYZERO ");
  std::thread setter([&context] { context.SetLimits({.steps = 60}); });
  setter.join();
  EXPECT_EQ(Of(context, "Turns", 60), "60");
  EXPECT_EQ(Of("Turns", 60), "ERR_STEPLIMIT steps=50");
}

TEST_F(LimitsTest, TheIniFileSetsThemUntilTheHostDoes) {
  Put("tamber.ini", "[TamberLimits]\nMaxSteps=20\nMaxString=2K\nMaxArray=-1\nRemainderFault=0\n");
  context_.SetIniPath("tamber.ini");
  EXPECT_EQ(Of("Turns", 21), "ERR_STEPLIMIT steps=20");
  EXPECT_EQ(Of("Rest", 0), "ERR_DIVIDEBYZERO ");
  EXPECT_EQ(context_.GetLimits().string, 2048);
  EXPECT_EQ(context_.GetLimits().array, 1) << "what is no limit must not run free";
  Limit("");
  context_.SetIniPath("tamber.ini");
  EXPECT_EQ(Of("Turns", 21), "21");
}

TEST_F(LimitsTest, HostsInC) {
  tamber_context* context = tamber_new();
  EXPECT_EQ(tamber_set_limits(context, "steps=9,memory=x"), TAMBER_BAD_ARGUMENT);
  EXPECT_EQ(tamber_set_limits(context, "steps=9"), TAMBER_OK);
  int told = 0;
  const auto tell = [](void* count) { return ++*static_cast<int*>(count) < 100 ? 1 : 0; };
  EXPECT_EQ(tamber_set_progress(context, 1, 0, tell, &told), TAMBER_OK);
  EXPECT_EQ(tamber_set_remainder_fault(context, 0), TAMBER_OK);
  const std::string script = "proc main()\n  while TRUE\n  wend\nendproc\n";
  EXPECT_EQ(tamber_compile_text(context, "test", script.data(), script.size()), TAMBER_OK);
  EXPECT_EQ(tamber_run(context, "main"), TAMBER_FAILED);
  tamber_usage usage = {};
  EXPECT_EQ(tamber_get_usage(context, &usage), TAMBER_OK);
  EXPECT_EQ(usage.steps, 10);
  EXPECT_EQ(told, 9);
  tamber_free(context);
}

}  // namespace
