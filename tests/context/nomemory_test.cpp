#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>

#include "context/tambctxt.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kLimitable = false;
#elif defined(__has_feature)
constexpr bool kLimitable = !__has_feature(address_sanitizer);
#else
constexpr bool kLimitable = true;
#endif

/// Lets this process have so much more memory than it has now.
void LimitMemory(rlim_t more) {
  long pages = 0;
  std::FILE* file = std::fopen("/proc/self/statm", "r");
  if (file == nullptr || std::fscanf(file, "%ld", &pages) != 1) std::abort();
  std::fclose(file);
  const rlim_t limit = static_cast<rlim_t>(pages) * 4096 + more;
  const rlimit both{limit, limit};
  if (setrlimit(RLIMIT_AS, &both) != 0) std::abort();
}

struct Told {
  int diagnostics = 0;
  int reports = 0;
  uint32_t line = 0;
  size_t calls = 0;
};

/// Which of the expectations failed; 0 when none did.
int RunWithoutMemory(const char* script) {
  TamberContext context;
  Told told;
  context.SetDiagnosticHandler(
      [](const TamberDiagnostic& diagnostic, void* user) {
        auto& into = *static_cast<Told*>(user);
        ++into.diagnostics;
        into.line = diagnostic.line;
        into.calls = diagnostic.callStack.size();
      },
      &told);
  context.SetReportSink(
      [](const KelString&, std::string_view text, void* user) {
        static_cast<Told*>(user)->reports += text.find("ERR_NOMEMORY") != std::string_view::npos;
        return true;
      },
      &told);
  if (context.CompileScriptBuffer("s", script, 1) != 1) return 1;
  const size_t before = mallinfo2().uordblks;
  for (int round = 1; round <= 2; ++round) {
    if (context.RunProcedure("main", nullptr) != 0 || context.GetContextError() != 20113) return 2;
    if (told.diagnostics != round || told.reports != round) return 3;
    if (told.line != 9 || told.calls != 2) return 4;
    if (mallinfo2().uordblks > before + (4U << 20)) return 5;
    if (context.RunProcedure("Short", nullptr) != 1) return 6;
    if (context.GetVariable("n", VARLIST_GLOBAL)->GetIntegerValue() != round) return 7;
  }
  return 0;
}

// What is left when the last string was refused is too little for a report.
TEST(NoMemory, IsReportedOnceAndEverythingIsGivenBack) {
  if (!kLimitable) GTEST_SKIP() << "a sanitizer needs more address space than it uses";
  const char* const script = R"(int n
proc Short()
  n += 1
endproc
proc Fill()
  string[] a
  int i
  while TRUE
    a <<= "a string that needs a block of its own " + i
  wend
endproc
proc main()
  Fill()
endproc
)";
  EXPECT_EXIT(
      {
        LimitMemory(100'000'000);
        std::exit(RunWithoutMemory(script));
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
