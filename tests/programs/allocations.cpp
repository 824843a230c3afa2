// Runs scripts again and again, and lets another allocation fail each time: the run ends well or
// says that there was no memory, nothing is lost, and the context can be used afterwards.
//
//   allocations SECONDS SCRIPT...
//
// Each script is given so many seconds. Under sanitizers, which have an allocator of their own,
// only `operator new` fails.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "tamber.h"

#if defined(__SANITIZE_ADDRESS__)
#define OWN_MALLOC 0
#else
#define OWN_MALLOC 1
#endif

namespace {

constinit thread_local int64_t left = -1;  ///< allocations before the one that fails; none below 0
constinit thread_local int64_t live = 0;   ///< blocks

bool Fails() {
  if (left < 0) return false;
  return left-- == 0;
}

}  // namespace

#if OWN_MALLOC
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void __libc_free(void* memory);

void* malloc(size_t size) {
  if (Fails()) return nullptr;
  ++live;
  return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
  if (Fails()) return nullptr;
  ++live;
  return __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) {
  if (Fails()) return nullptr;
  if (memory == nullptr) ++live;
  return __libc_realloc(memory, size);
}
void free(void* memory) {
  if (memory != nullptr) --live;
  __libc_free(memory);
}
}
#else
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  void* const memory = Fails() ? nullptr : std::malloc(size);
  if (memory != nullptr) ++live;
  return memory;
}
void* operator new(size_t size) {
  void* const memory = operator new(size, std::nothrow);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept {
  if (memory != nullptr) --live;
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept { operator delete(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { operator delete(memory); }
#endif

namespace {

using Clock = std::chrono::steady_clock;

struct Outcome {
  bool reached = false;  ///< the allocation that was to fail
  int32_t code = 0;
  std::string wrong;
};

int32_t RunWithFailure(TamberContext& context, const KelString& script, int64_t at, bool& reached) {
  left = at;
  int32_t code = context.CompileScriptFile(script) != 0 ? 0 : context.GetContextError();
  if (code == 0 && context.RunProcedure("main", nullptr) == 0) code = context.GetContextError();
  reached = left < 0;
  left = -1;
  return code;
}

/// What a host does next.
std::string UseAgain(TamberContext& context) {
  context.ResetContext();
  if (context.CompileScriptBuffer(
          "again",
          "string Again(int n)\n  int[] a\n  a += n\n  return \"a\" + ArrayGetSize(a)\nendproc\n",
          1) == 0)
    return "does not compile again: " + context.GetDiagnostic().text.Str();
  const auto again = Call<std::string>(context, "Again", 7);
  return again.ValueOr("") == "a7" ? "" : "does not run again: " + again.Error().text.Str();
}

Outcome Try(const KelString& script, int64_t at) {
  Outcome outcome;
  TamberContext context;
  context.SetDefaultReports(false);
  context.SetOutputSink([](std::string_view, void*) {}, nullptr);
  outcome.code = RunWithFailure(context, script, at, outcome.reached);
  outcome.wrong = UseAgain(context);
  return outcome;
}

/// Ends at the first fault.
bool FailEach(const char* name, double seconds) {
  const KelString script(name);
  const Outcome whole = Try(script, INT64_MAX);
  const auto begin = Clock::now();
  Try(script, INT64_MAX);
  const std::chrono::duration<double> once = Clock::now() - begin;
  int64_t count = 0, runs = 0;
  {
    TamberContext context;
    context.SetDefaultReports(false);
    context.SetOutputSink([](std::string_view, void*) {}, nullptr);
    left = INT64_MAX;
    context.CompileScriptFile(script);
    context.RunProcedure("main", nullptr);
    count = INT64_MAX - left;
    left = -1;
  }
  const auto most = static_cast<int64_t>(seconds / (2 * once.count() + 1e-6)) + 1;
  const int64_t step = std::max<int64_t>(count / most, 1);
  for (int64_t at = 0; at < count; at += step, ++runs) {
    Try(script, at);  // what is kept for the next time is there then
    const int64_t before = live;
    const Outcome outcome = Try(script, at);
    std::string wrong = outcome.wrong;
    const bool isClean = outcome.code == whole.code || outcome.code == ERR_NOMEMORY;
    if (outcome.reached && !isClean) wrong += " error " + std::to_string(outcome.code);
    if (live != before) wrong += " blocks lost: " + std::to_string(live - before);
    if (wrong.empty()) continue;
    std::printf("%s: allocation %ld of %ld: %s\n", name, static_cast<long>(at),
                static_cast<long>(count), wrong.c_str());
    return false;
  }
  std::printf("%s: %ld of %ld allocations\n", name, static_cast<long>(runs),
              static_cast<long>(count));
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  bool isGood = true;
  for (int i = 2; i < argc; ++i) isGood &= FailEach(argv[i], std::atof(argv[1]));
  return isGood && argc > 2 ? 0 : 1;
}
