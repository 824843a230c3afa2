// What a host pays for a context, beside what it pays for a Lua state; how compiling and look-ups
// grow; and that scalar code allocates nothing once it runs.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include "tamber.h"

#ifdef TAMBER_BENCH_LUA
#include <lua5.4/lua.hpp>
#endif

extern "C" void* __libc_malloc(size_t size);

namespace {

std::atomic<uint64_t> allocations{0};

std::string Procedures(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    std::string n = std::to_string(i);
    text += "int Work" + n + "(int a, int b)\n  int i, sum\n  string s\n";
    text += "  for (i = 1; i <= a; i += 1)\n    sum = sum + i * b - (a & 7)\n  endfor\n";
    text += "  if sum > 100 && b != 3\n    s = \"n=\" + sum\n  endif\n  return sum\nendproc\n";
  }
  return text + "proc main()\nendproc\n";
}

std::string LuaFunctions(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += "function Work" + std::to_string(i) + "(a, b)\n  local i, sum\n  local s\n";
    text += "  sum = 0\n  for i = 1, a do\n    sum = sum + i * b - (a & 7)\n  end\n";
    text += "  if sum > 100 and b ~= 3 then\n    s = \"n=\" .. sum\n  end\n  return sum\nend\n";
  }
  return text;
}

void Fail(benchmark::State& state, TamberContext& context) {
  state.SkipWithError(context.GetContextErrorText().GetString());
}

void CreateContext(benchmark::State& state) {
  for (auto _ : state) TamberContext context;
}
BENCHMARK(CreateContext);

void CompileProcedures(benchmark::State& state) {
  const KelString text(Procedures(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    TamberContext context;
    if (!context.CompileScriptBuffer("bench", text, 1)) Fail(state, context);
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(CompileProcedures)
    ->RangeMultiplier(2)
    ->Range(250, 4000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

#ifdef TAMBER_BENCH_LUA
void CreateLuaState(benchmark::State& state) {
  for (auto _ : state) {
    lua_State* lua = luaL_newstate();
    luaL_openlibs(lua);
    lua_close(lua);
  }
}
BENCHMARK(CreateLuaState);

void CompileLuaFunctions(benchmark::State& state) {
  const std::string text = LuaFunctions(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    lua_State* lua = luaL_newstate();
    if (luaL_loadstring(lua, text.c_str()) != LUA_OK) state.SkipWithError(lua_tostring(lua, -1));
    lua_close(lua);
  }
}
BENCHMARK(CompileLuaFunctions)->RangeMultiplier(2)->Range(250, 4000)->Unit(benchmark::kMillisecond);
#endif

/// Runs a procedure `Grow(int n)` of a script for growing n.
void RunGrowing(benchmark::State& state, const char* body) {
  TamberContext context;
  if (!context.CompileScriptBuffer("bench", KelString(body), 1)) return Fail(state, context);
  Stack stack;
  for (auto _ : state) {
    stack.PushInteger(static_cast<int32_t>(state.range(0)));
    if (!context.RunProcedure("Grow", &stack)) return Fail(state, context);
  }
  state.SetComplexityN(state.range(0));
}

void AppendText(benchmark::State& state) {
  RunGrowing(state,
             "proc Grow(int n)\n  string s\n  int i\n  for (i = 1; i <= n; i += 1)\n"
             "    s = s + \"x\"\n  endfor\nendproc\n");
}
BENCHMARK(AppendText)->RangeMultiplier(4)->Range(4096, 1 << 20)->Complexity(benchmark::oNLogN);

void AppendGlobalText(benchmark::State& state) {
  RunGrowing(state,
             "string s\nproc Grow(int n)\n  int i\n  s = \"\"\n  for (i = 1; i <= n; i += 1)\n"
             "    s = s + \"x\"\n  endfor\nendproc\n");
}
BENCHMARK(AppendGlobalText)
    ->RangeMultiplier(4)
    ->Range(4096, 1 << 18)
    ->Complexity(benchmark::oNLogN);

void AppendElements(benchmark::State& state) {
  RunGrowing(state,
             "proc Grow(int n)\n  int[] a\n  int i\n  for (i = 1; i <= n; i += 1)\n"
             "    a <<= i\n  endfor\nendproc\n");
}
BENCHMARK(AppendElements)->RangeMultiplier(4)->Range(4096, 1 << 20)->Complexity(benchmark::oNLogN);

void LookUpAmongGlobals(benchmark::State& state) {
  TamberContext context;
  std::string text;
  for (int i = 0; i < state.range(0); ++i) text += "int global" + std::to_string(i) + "\n";
  text += "proc main()\nendproc\n";
  if (!context.CompileScriptBuffer("bench", KelString(text), 1)) return Fail(state, context);
  for (auto _ : state)
    benchmark::DoNotOptimize(context.GetVariable(KelString("GLOBAL77"), VARLIST_GLOBAL));
}
BENCHMARK(LookUpAmongGlobals)->Arg(100)->Arg(1000)->Arg(10000);

/// The counter must not depend on how often the loop goes round.
void AllocationsInScalarCode(benchmark::State& state) {
  TamberContext context;
  const char* text =
      "int Step(int a, int b)\n  if a > b\n    return a - b\n  endif\n  return a + b\nendproc\n"
      "proc Grow(int n)\n  int i, sum\n  double d\n  for (i = 1; i <= n; i += 1)\n"
      "    sum = Step(sum, i) & 65535\n    d = d * 0.5 + sum\n    while sum > 60000\n"
      "      sum -= 777\n    wend\n  endfor\nendproc\n";
  if (!context.CompileScriptBuffer("bench", KelString(text), 1)) return Fail(state, context);
  Stack stack;
  uint64_t counts[2] = {0, 0};
  for (auto _ : state) {
    for (int which = 0; which < 2; ++which) {
      stack.PushInteger(1000);
      context.RunProcedure("Grow", &stack);
      const uint64_t before = allocations.load();
      stack.PushInteger(which == 0 ? 1000 : 100000);
      context.RunProcedure("Grow", &stack);
      counts[which] = allocations.load() - before;
    }
    if (counts[0] != counts[1]) state.SkipWithError("the loop allocates");
  }
  state.counters["per_run"] = static_cast<double>(counts[0]);
}
BENCHMARK(AllocationsInScalarCode)->Iterations(20);

}  // namespace

/// Every allocation of the process comes through here, the library's too.
extern "C" void* malloc(size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
