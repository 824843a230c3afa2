// threads SCRIPT...: compiles each script once and runs it in eight threads at the same time, each
// with a context of its own, while another one adds to what it has. All must print and report what
// one alone does; ThreadSanitizer watches what they share.
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tamber.h"

namespace {

constexpr int kThreads = 8;

/// Takes down reports instead of writing them.
bool TakeReport(const KelString&, std::string_view report, void* said) {
  *static_cast<KelString*>(said) += KelString(report);
  return true;
}

/// What the script prints, and what is said of it.
std::string Run(TamberContext& context) {
  KelString said;
  context.SetOutput(&said);
  context.SetReportSink(TakeReport, &said);
  context.RunProcedure("main", nullptr);
  context.SetReportSink(nullptr, nullptr);
  context.SetOutput(nullptr);
  return said.Str();
}

/// What a context may do of its own while others run.
void AddToContext(const std::shared_ptr<const TamberProgram>& program) {
  TamberContext context(program);
  KelString dump;
  context.CompileScriptBuffer("more", "int ofItsOwn = 1\nint More()\n  return ofItsOwn\nendproc\n",
                              1);
  context.DumpTypes(dump, "*", "");
  context.DumpFunctions(dump, "*", "");
  int32_t code = 0;
  Variable::Delete(context.EvaluateText("TRUE + 1", code));
  static_cast<void>(context.Freeze());
}

bool Check(const char* script) {
  TamberContext prepared;
  prepared.SetDefaultReports(false);
  if (!prepared.CompileScriptFile(script)) return true;  // what does not compile does not run
  const std::shared_ptr<const TamberProgram> program = prepared.Freeze();
  if (program == nullptr) return true;
  const auto run = [&program] {
    TamberContext context(program);
    return Run(context);
  };
  const std::string alone = run();
  const bool isSteady = run() == alone;  // scripts may ask for the time
  std::vector<std::string> outputs(kThreads);
  std::vector<std::thread> threads;
  for (std::string& output : outputs) threads.emplace_back([&] { output = run(); });
  AddToContext(program);
  for (std::thread& thread : threads) thread.join();
  for (const std::string& output : outputs) {
    if (!isSteady || output == alone) continue;
    std::fprintf(stderr, "%s: alone:\n%s\nbeside others:\n%s\n", script, alone.c_str(),
                 output.c_str());
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  int failed = 0;
  for (int i = 1; i < argc; ++i) failed += Check(argv[i]) ? 0 : 1;
  return failed == 0 ? 0 : 1;
}
