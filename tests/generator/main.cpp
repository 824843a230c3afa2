// Random programs, each run by the engine and by a model of it; what they print must be the same,
// and nothing may break.
//
//   generator [--seconds N] [--seed S] [--count N] [--with FEATURE] [--without FEATURE]
//             [--only] [--keep-going] [--print]

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

#include "generator/grow.h"
#include "generator/model.h"
#include "generator/shrink.h"
#include "tamber.h"

namespace {

using namespace generator;
using Clock = std::chrono::steady_clock;

constexpr unsigned kSecondsForOne = 30;
constexpr uint64_t kProgramsPerProcess = 200;

struct Options {
  double seconds = 5;
  uint64_t seed = 1;
  uint64_t count = 0;
  bool keepGoing = false;
  bool print = false;
  Features features = Features::Sound();
};

/// How the engine's run differs from what it must be; empty when it does not. The first word is the
/// kind of fault.
using Fault = std::string;

std::string Shown(const std::string& text) {
  std::string shown;
  for (const char c : text) {
    char code[8];
    std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(c));
    shown += c >= ' ' && c <= '~' ? std::string(1, c) : std::string(code);
  }
  return shown;
}

Fault CompareOutput(const std::string& wanted, const std::string& got, bool open) {
  if (open ? got.compare(0, wanted.size(), wanted) == 0 : got == wanted) return "";
  size_t start = 0;
  int line = 1;
  for (size_t i = 0; i < wanted.size() && i < got.size() && wanted[i] == got[i]; ++i) {
    if (wanted[i] != '\n') continue;
    start = i + 1;
    ++line;
  }
  const auto lineOf = [&](const std::string& text) {
    return Shown(text.substr(start, text.find('\n', start) - start));
  };
  return "output: line " + std::to_string(line) + " must be \"" + lineOf(wanted) + "\" and is \"" +
         lineOf(got) + "\"";
}

void ProvideExterns(TamberContext& context, const Program& program) {
  for (const Global& global : program.globals) {
    if (global.scope != Global::Scope::Extern || !global.value) continue;
    const Variable* declared = context.GetVariable(global.name, VARLIST_EXTERNAL);
    if (declared == nullptr) continue;
    Variable* provided = declared->Clone();
    const Scalar& value = global.value->value;
    if (value.IsText()) {
      provided->SetStringValue(value.text);
    } else if (value.kind >= Kind::Float) {
      provided->SetFloatValue(static_cast<float>(value.real));
    } else if (value.kind == Kind::Bool) {
      provided->SetBoolValue(value.whole);
    } else if (value.kind == Kind::Char) {
      provided->SetCharValue(static_cast<char>(value.whole));
    } else {
      provided->SetIntegerValue(value.whole);
    }
    context.AddVariable(provided, VARLIST_GLOBAL);
  }
}

Fault CheckError(TamberContext& context, int wanted) {
  const TamberDiagnostic& error = context.GetDiagnostic();
  if (wanted == kAnyFatal ? error.code >= kAnyFatal : error.code == wanted) return "";
  return "error " + std::to_string(error.code) + " rather than " + std::to_string(wanted) +
         ", line " + std::to_string(error.line) + ": " + std::string(error.detail.Str());
}

Fault RunInContext(const Program& program, const Expectation& expected) {
  std::string output;
  TamberContext context;
  context.SetReportSink([](const KelString&, std::string_view, void*) { return true; }, nullptr);
  context.SetOutputSink(
      [](std::string_view text, void* user) { static_cast<std::string*>(user)->append(text); },
      &output);
  if (!context.CompileScriptBuffer("generated", Render(program), 1))
    return "compiling: " + CheckError(context, 0);
  ProvideExterns(context, program);
  for (int run = 0; run < expected.runs; ++run) context.RunProcedure("main", nullptr);
  const int code = context.GetDiagnostic().code;
  if (code != 0 && context.GetErrorName(code).Str().empty())
    return "error " + std::to_string(code) + " is not in the table";
  Fault fault = CompareOutput(expected.output, output, expected.open);
  const Fault error = expected.open ? "" : CheckError(context, expected.error);
  if (fault.empty()) return error;
  return error.empty() ? fault : fault + " (" + error + ")";
}

Fault Run(const Program& program) {
  const Expectation expected = Predict(program);
  if (!expected.usable) return "";
  alarm(kSecondsForOne);
  Fault fault;
  int64_t left = 1;
  // What the process builds once and keeps is no leak, so a second run decides.
  for (int run = 0; run < 2 && left != 0 && fault.empty(); ++run) {
    const int64_t before = Variable::LiveCount();
    fault = RunInContext(program, expected);
    left = Variable::LiveCount() - before;
  }
  alarm(0);
  if (fault.empty() && left != 0) fault = "live: " + std::to_string(left) + " variables left over";
  return fault;
}

/// Runs `body` in a process of its own and returns what it wrote, or how it ended.
template <class Body>
Fault InProcess(bool quiet, const Body& body) {
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  std::cout.flush();  // lest the child write it once more
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    if (quiet && std::freopen("/dev/null", "w", stderr) == nullptr) std::abort();
    const Fault fault = body();
    if (write(ends[1], fault.data(), fault.size()) < 0) std::abort();
    std::exit(0);
  }
  close(ends[1]);
  Fault fault;
  char buffer[4096];
  for (ssize_t size; (size = read(ends[0], buffer, sizeof buffer)) > 0;)
    fault.append(buffer, static_cast<size_t>(size));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!fault.empty()) return fault;
  if (WIFSIGNALED(status)) return std::string("signal: ") + strsignal(WTERMSIG(status));
  if (WEXITSTATUS(status) != 0) return "sanitizer: see its report";
  return "";
}

/// What stays the same while a program shrinks.
std::string KindOf(const Fault& fault) {
  return fault.substr(0, fault.find_first_of(fault.starts_with("output") ? " " : ","));
}

void Report(uint64_t seed, const Options& options) {
  const Program program = Grow(seed, options.features);
  const Fault fault = InProcess(false, [&] { return Run(program); });
  if (fault.empty()) {
    std::cout << "seed " << seed << ": fails only behind other programs\n";
    return;
  }
  const std::string kind = KindOf(fault);
  const Program small = Shrink(program, [&](const Program& candidate) {
    return KindOf(InProcess(true, [&] { return Run(candidate); })) == kind;
  });
  const std::string name = "generated-" + std::to_string(seed) + ".tam";
  const Fault last = InProcess(true, [&] { return Run(small); });
  std::ofstream(name) << "// " << last << "\n" << Render(small);
  std::cout << "seed " << seed << ": " << last << "\n" << Render(small) << "(in " << name << ")\n";
}

/// Runs programs from `first` on; returns how many, or that one failed.
bool RunBatch(uint64_t first, uint64_t count, Clock::time_point end, uint64_t* current,
              const Options& options) {
  const Fault fault = InProcess(true, [&]() -> Fault {
    for (*current = first; *current < first + count && Clock::now() < end; ++*current) {
      const Fault found = Run(Grow(*current, options.features));
      if (!found.empty()) return found;
    }
    return "";
  });
  if (fault.empty()) return true;
  // A leak shows when the process ends, whoever made it.
  const uint64_t last = *current;
  for (*current = fault.starts_with("sanitizer") ? first : last; *current < last; ++*current) {
    const auto run = [&] { return Run(Grow(*current, options.features)); };
    if (!InProcess(true, run).empty()) break;
  }
  return false;
}

bool Read(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    const std::string value = i + 1 < argc ? argv[i + 1] : "";
    const bool isSwitch = option == "--keep-going" || option == "--print";
    i += isSwitch ? 0 : 1;
    if (isSwitch) {
      (option == "--print" ? options.print : options.keepGoing) = true;
    } else if (option == "--seconds") {
      options.seconds = std::atof(value.c_str());
    } else if (option == "--seed") {
      options.seed = std::strtoull(value.c_str(), nullptr, 10);
    } else if (option == "--count") {
      options.count = std::strtoull(value.c_str(), nullptr, 10);
    } else if ((option != "--with" && option != "--without") ||
               !options.features.Set(value, option == "--with")) {
      std::cerr << "generator: what is " << option << " " << value << "?\n";
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!Read(argc, argv, options)) return 2;
  if (options.print) {
    const Program program = Grow(options.seed, options.features);
    std::cout << Render(program) << "\n// prints\n" << Predict(program).output;
    return 0;
  }
  void* shared =
      mmap(nullptr, sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return 2;
  auto* current = static_cast<uint64_t*>(shared);
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(options.seconds));
  const uint64_t last = options.count == 0 ? UINT64_MAX : options.seed + options.count;
  int faults = 0;
  uint64_t seed = options.seed;
  while (seed < last && Clock::now() < end) {
    if (RunBatch(seed, std::min(kProgramsPerProcess, last - seed), end, current, options)) {
      seed = *current;
      continue;
    }
    ++faults;
    Report(*current, options);
    seed = *current + 1;
    if (!options.keepGoing) break;
  }
  std::cout << seed - options.seed << " programs from seed " << options.seed << ", " << faults
            << " faults" << std::endl;
  return faults == 0 ? 0 : 1;
}
