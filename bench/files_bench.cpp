// Speed of the file functions beside the system's own commands; run in a directory with 1 GB free.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "context/tambctxt.h"

namespace {

namespace fs = std::filesystem;

constexpr int kLargeMb = 200;
constexpr int kLines = 1000000;
constexpr int kFiles = 10000;

/// Files to work on, made once.
void Prepare() {
  static bool ready = false;
  if (ready) return;
  ready = true;
  fs::create_directory("bench_files");
  std::string block(1 << 20, '\0');
  std::ofstream large("bench_files/large", std::ios::binary);
  for (int i = 0; i < kLargeMb; ++i) {
    for (size_t at = 0; at < block.size(); ++at) block[at] = static_cast<char>(at * 31 + at / 7);
    large << block;
  }
  large.close();
  fs::copy_file("bench_files/large", "bench_files/twin", fs::copy_options::overwrite_existing);
  std::ofstream lines("bench_files/lines");
  for (int i = 0; i < kLines; ++i) lines << "this is line number " << i << "\n";
  for (int i = 0; i < kFiles; ++i) {
    const std::string dir = "bench_files/tree/" + std::to_string(i / 100);
    fs::create_directories(dir);
    std::ofstream(dir + "/" + std::to_string(i)) << "some text";
  }
}

/// Runs statements in a script of their own.
void RunScript(benchmark::State& state, const std::string& statements) {
  Prepare();
  for (auto _ : state) {
    TamberContext context;
    const KelString script("proc main()\nTextFileHandle h\nstring s\nint i\nbool b\n" + statements +
                           "\nendproc\n");
    if (!context.CompileScriptBuffer("bench", script, 1) ||
        !context.RunProcedure("main", nullptr)) {
      state.SkipWithError("the script failed");
    }
  }
}

void RunCommand(benchmark::State& state, const std::string& command) {
  Prepare();
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) state.SkipWithError("the command failed");
  }
}

#define PAIR(name, script, command)                                           \
  void name(benchmark::State& state) { RunScript(state, script); }            \
  BENCHMARK(name)->Unit(benchmark::kMillisecond)->UseRealTime();              \
  void name##Command(benchmark::State& state) { RunCommand(state, command); } \
  BENCHMARK(name##Command)->Unit(benchmark::kMillisecond)->UseRealTime()

PAIR(Md5, "s = FileMd5(\"bench_files/large\")", "md5sum bench_files/large > /dev/null");
PAIR(Compare, "b = FileCompare(\"bench_files/large\", \"bench_files/twin\")",
     "cmp bench_files/large bench_files/twin");
PAIR(Copy, "b = FileCopy(\"bench_files/large\", \"bench_files/copy\", TRUE)",
     "cp bench_files/large bench_files/copy");
PAIR(TreeSize, "i = DirGetSize(\"bench_files/tree\")", "du -s bench_files/tree > /dev/null");

/// Goes through the first lines of a file of a million; twice as many take twice as long.
void Lines(benchmark::State& state) {
  RunScript(state, "h = FileTextOpen(\"bench_files/lines\")\nfor (i = 1; i <= " +
                       std::to_string(state.range(0)) +
                       "; i += 1)\ns = FileGetLine(h, i)\nendfor\nb = FileTextClose(h)");
}
BENCHMARK(Lines)->Arg(1)->Arg(500000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
