// ArraySort of a million integers beside std::stable_sort of the same, and ArrayFind over them.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tamber.h"

namespace {

constexpr int kCount = 1000000;

std::vector<int32_t> Numbers() {
  std::mt19937 random(1);
  std::vector<int32_t> numbers(kCount);
  for (int32_t& number : numbers) number = static_cast<int32_t>(random());
  return numbers;
}

/// Runs a built-in on a global array "a" of the numbers, again and again.
void CallBuiltIn(benchmark::State& state, const char* statement) {
  TamberContext context;
  const std::string script = std::string("int[] a\nint[] b\nint i\nproc main()\n") + statement +
                             "\nendproc\nproc fill()\na += " + std::to_string(kCount) +
                             "\ni = 1\nwhile i <= ArrayGetSize(a)\n"
                             "a[i] = Rand() * 65536 + Rand()\ni += 1\nwend\nendproc\n";
  if (context.CompileScriptBuffer("bench", KelString(script), 1) == 0 ||
      context.RunProcedure("fill", nullptr) == 0) {
    state.SkipWithError("the script does not compile");
    return;
  }
  for (auto _ : state) context.RunProcedure("main", nullptr);
}

void ArraySort(benchmark::State& state) { CallBuiltIn(state, "b = ArraySort(a, TRUE)"); }
void ArrayFindNothing(benchmark::State& state) { CallBuiltIn(state, "i = ArrayFind(a, 77, 1)"); }

void StableSort(benchmark::State& state) {
  const std::vector<int32_t> numbers = Numbers();
  for (auto _ : state) {
    std::vector<int32_t> copy = numbers;
    std::stable_sort(copy.begin(), copy.end());
    benchmark::DoNotOptimize(copy.data());
  }
}

BENCHMARK(StableSort)->Unit(benchmark::kMillisecond);
BENCHMARK(ArraySort)->Unit(benchmark::kMillisecond);
BENCHMARK(ArrayFindNothing)->Unit(benchmark::kMillisecond);

}  // namespace
