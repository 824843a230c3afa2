// What a call between a host and a script costs, beside the same in Lua.

#include <benchmark/benchmark.h>

#include <cstdlib>
#ifdef TAMBER_BENCH_LUA
#include <lua.hpp>
#endif

#include "tamber.h"

namespace {

void Compile(TamberContext& context, const char* script) {
  if (!context.CompileScriptBuffer("bench", script, 1)) std::abort();
}

void BM_CallEmpty(benchmark::State& state) {
  TamberContext context;
  Compile(context, "proc Empty()\nendproc\n");
  for (auto _ : state) benchmark::DoNotOptimize(Call(context, "Empty").IsOk());
}
BENCHMARK(BM_CallEmpty);

void BM_CallWithValues(benchmark::State& state) {
  TamberContext context;
  Compile(context, "int Add(int a, int b)\n  return a + b\nendproc\n");
  for (auto _ : state) benchmark::DoNotOptimize(Call<int32_t>(context, "Add", 3, 4).Value());
}
BENCHMARK(BM_CallWithValues);

#ifdef TAMBER_BENCH_LUA
void BM_LuaPcallEmpty(benchmark::State& state) {
  lua_State* lua = luaL_newstate();
  luaL_dostring(lua, "function Empty() end");
  for (auto _ : state) {
    lua_getglobal(lua, "Empty");
    benchmark::DoNotOptimize(lua_pcall(lua, 0, 0, 0));
  }
  lua_close(lua);
}
BENCHMARK(BM_LuaPcallEmpty);
#endif

int32_t Area(int32_t w, int32_t h) { return w * h; }

int32_t AreaByHand(FunctionCallInfo* call) {
  const int32_t h = call->stack->PopInteger();
  const int32_t w = call->stack->PopInteger();
  call->stack->PushInteger(w * h);
  return 1;
}

constexpr const char* kLoop =
    "proc Loop(int n)\n"
    "  int i, sum\n"
    "  for (i = 0; i < n; i += 1)\n"
    "    sum += Area(i, 3)\n"
    "  endfor\n"
    "endproc\n";
constexpr int32_t kCalls = 10000;

void RunLoop(benchmark::State& state, TamberContext& context) {
  Compile(context, kLoop);
  for (auto _ : state) benchmark::DoNotOptimize(Call(context, "Loop", kCalls).IsOk());
  state.SetItemsProcessed(state.iterations() * kCalls);
}

void BM_FunctionByHand(benchmark::State& state) {
  TamberContext context;
  FunctionTraits traits;
  traits.exactResult = true;
  context.RegisterFunction("int Area (int W, int H)", AreaByHand, FunctionList::FUNCTYPE_NORMAL,
                           false, traits);
  RunLoop(state, context);
}
BENCHMARK(BM_FunctionByHand);

void BM_FunctionWrapped(benchmark::State& state) {
  TamberContext context;
  RegisterFunction(context, "int Area (int W, int H)", Area);
  RunLoop(state, context);
}
BENCHMARK(BM_FunctionWrapped);

void BM_FunctionWrappedLambda(benchmark::State& state) {
  TamberContext context;
  RegisterFunction(context, "int Area (int W, int H)",
                   [](int32_t w, int32_t h) { return Area(w, h); });
  RunLoop(state, context);
}
BENCHMARK(BM_FunctionWrappedLambda);

}  // namespace
