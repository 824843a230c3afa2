// Random programs, each run by the engine and by a model of it; what they print must be the same,
// and nothing may break.
//
//   generator [--seconds N] [--seed S] [--keep-going]

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

#include "generator/generator.h"
#include "tamber.h"

namespace {

using namespace generator;
using Clock = std::chrono::steady_clock;

constexpr unsigned kSecondsForOne = 30;
constexpr uint64_t kProgramsPerProcess = 100;

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
  if (open ? got.starts_with(wanted) : got == wanted) return "";
  std::istringstream wantedLines(wanted), gotLines(got);
  std::string must, is;
  for (int line = 1;; ++line) {
    const bool more = !std::getline(wantedLines, must).fail();
    const bool same = !std::getline(gotLines, is).fail() == more && must == is;
    if (more && same) continue;
    return "output: line " + std::to_string(line) + " must be \"" + Shown(must) + "\" and is \"" +
           Shown(is) + "\"";
  }
}

void ProvideExterns(TamberContext& context, const Program& program) {
  for (const Global& global : program.globals) {
    if (global.scope != Global::Scope::Extern) continue;
    const Variable* declared = context.GetVariable(global.name, VARLIST_EXTERNAL);
    if (declared != nullptr) context.AddVariable(declared->Clone(), VARLIST_GLOBAL);
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

/// Whether the program of a seed runs as it must; shrinks one that does not.
bool Check(uint64_t seed) {
  const Program program = Grow(seed);
  const Fault fault = InProcess(false, [&] { return Run(program); });
  if (fault.empty()) return true;
  const std::string kind = KindOf(fault);
  const Program small = Shrink(program, [&](const Program& candidate) {
    return KindOf(InProcess(true, [&] { return Run(candidate); })) == kind;
  });
  const std::string name = "generated-" + std::to_string(seed) + ".tam";
  const Fault last = InProcess(true, [&] { return Run(small); });
  std::ofstream(name) << "// " << last << "\n" << Render(small);
  std::cout << "seed " << seed << ": " << last << "\n" << Render(small) << "(in " << name << ")\n";
  return false;
}

/// Many in one process, which is faster; how many went well alone if something is wrong with them.
uint64_t RunBatch(uint64_t first) {
  const Fault fault = InProcess(true, [&]() -> Fault {
    for (uint64_t seed = first; seed < first + kProgramsPerProcess; ++seed)
      if (const Fault found = Run(Grow(seed)); !found.empty()) return found;
    return "";
  });
  if (fault.empty()) return kProgramsPerProcess;
  uint64_t good = 0;
  while (good < kProgramsPerProcess && Check(first + good)) ++good;
  if (good == kProgramsPerProcess)
    std::cout << "seeds from " << first << " fail only together: " << fault << "\n";
  return std::min(good, kProgramsPerProcess - 1);
}

}  // namespace

int main(int argc, char** argv) {
  double seconds = 5;
  uint64_t seed = 1;
  bool keepGoing = false;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--keep-going") {
      keepGoing = true;
    } else if (option == "--seconds" && i + 1 < argc) {
      seconds = std::atof(argv[++i]);
    } else if (option == "--seed" && i + 1 < argc) {
      seed = std::strtoull(argv[++i], nullptr, 10);
    } else {
      std::cerr << "generator: what is " << option << "?\n";
      return 2;
    }
  }
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  const uint64_t first = seed;
  int faults = 0;
  while (Clock::now() < end && (faults == 0 || keepGoing)) {
    const uint64_t good = RunBatch(seed);
    const bool failed = good < kProgramsPerProcess;
    faults += failed ? 1 : 0;
    seed += failed ? good + 1 : good;
  }
  std::cout << seed - first << " programs from seed " << first << ", " << faults << " faults"
            << std::endl;
  return faults == 0 ? 0 : 1;
}
