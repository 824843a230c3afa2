// What a request costs a host: a context of a program, one call, gone; beside a Lua state that
// loads the same script for each request, and one that is kept and only gets its tables anew. And
// what a loaded context holds.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <memory>
#include <string>
#include <vector>

#include "tamber.h"

#ifdef TAMBER_BENCH_LUA
#include <lua5.4/lua.hpp>
#endif

namespace {

constexpr const char* kScript = R"(struct Request
  string path
  int size
endstruct

const int LIMIT = 100
const string MARK = "; "

int hits
string title = "the answer"
string[] log
Request last

int Clamp(int value, int low, int high)
  if value < low
    return low
  elif value > high
    return high
  endif
  return value
endproc

int Weight(string path)
  int i, sum
  for (i = 1; i <= StrLen(path); i += 1)
    sum += i * 3
  endfor
  return Clamp(sum, 1, LIMIT)
endproc

string Join(string[] parts)
  int i
  string joined
  for (i = 1; i <= ArrayGetSize(parts); i += 1)
    if i > 1
      joined += MARK
    endif
    joined += parts[i]
  endfor
  return joined
endproc

string Serve(string path, int size)
  hits += 1
  last.path = path
  last.size = Clamp(size, 0, LIMIT)
  log <<= path
  log <<= title
  return Join(log) + " " + Weight(path) + " " + hits
endproc
)";

constexpr const char* kResult = "/index; the answer 63 1";

void Fail(benchmark::State& state, TamberContext& context) {
  state.SkipWithError(context.GetDiagnostic().name.GetString());
}

std::shared_ptr<const TamberProgram> MakeProgram(benchmark::State& state) {
  TamberContext prepared;
  prepared.SetDefaultReports(false);
  if (!prepared.CompileScriptBuffer("bench", kScript, 1)) Fail(state, prepared);
  return prepared.Freeze();
}

bool Serve(TamberContext& context) {
  return Call<std::string>(context, "Serve", "/index", 7).ValueOr("") == kResult;
}

void RequestOfProgram(benchmark::State& state) {
  static std::shared_ptr<const TamberProgram> program;
  if (state.thread_index() == 0) program = MakeProgram(state);
  for (auto _ : state) {
    TamberContext context(program);
    if (!Serve(context)) return Fail(state, context);
  }
}
BENCHMARK(RequestOfProgram)->Threads(1)->Threads(2)->UseRealTime();

void RequestThatCompiles(benchmark::State& state) {
  for (auto _ : state) {
    TamberContext context;
    if (!context.CompileScriptBuffer("bench", kScript, 1) || !Serve(context))
      return Fail(state, context);
  }
}
BENCHMARK(RequestThatCompiles);

void CallEmptyProcedure(benchmark::State& state) {
  TamberContext context;
  if (!context.CompileScriptBuffer("bench", "proc Nothing()\nendproc\n", 1)) Fail(state, context);
  for (auto _ : state) {
    if (!Call(context, "Nothing")) return Fail(state, context);
  }
}
BENCHMARK(CallEmptyProcedure);

/// Bytes that one of many holds.
template <class Make>
double BytesOfEach(Make make) {
  constexpr size_t kCount = 200;
  using Made = decltype(make());
  std::vector<Made> all;
  all.reserve(kCount);
  const size_t before = mallinfo2().uordblks;
  for (size_t i = 0; i < kCount; ++i) all.push_back(make());
  return static_cast<double>(mallinfo2().uordblks - before) / kCount;
}

void MemoryOfContext(benchmark::State& state) {
  const std::shared_ptr<const TamberProgram> program = MakeProgram(state);
  for (auto _ : state) {
    state.counters["bytes"] = BytesOfEach([&] {
      auto context = std::make_unique<TamberContext>(program);
      if (!Serve(*context)) Fail(state, *context);
      return context;
    });
  }
}
BENCHMARK(MemoryOfContext)->Iterations(1);

#ifdef TAMBER_BENCH_LUA
constexpr const char* kLua = R"(local LIMIT = 100
local MARK = "; "

hits = 0
title = "the answer"
log = {}
last = { path = "", size = 0 }

function Clamp(value, low, high)
  if value < low then
    return low
  elseif value > high then
    return high
  end
  return value
end

function Weight(path)
  local sum = 0
  for i = 1, string.len(path) do
    sum = sum + i * 3
  end
  return Clamp(sum, 1, LIMIT)
end

function Join(parts)
  local joined = ""
  for i = 1, #parts do
    if i > 1 then
      joined = joined .. MARK
    end
    joined = joined .. parts[i]
  end
  return joined
end

function Serve(path, size)
  hits = hits + 1
  last.path = path
  last.size = Clamp(size, 0, LIMIT)
  log[#log + 1] = path
  log[#log + 1] = title
  return Join(log) .. " " .. Weight(path) .. " " .. hits
end

function Renew()
  hits = 0
  title = "the answer"
  log = {}
  last = { path = "", size = 0 }
end
)";

struct Lua {
  lua_State* state = luaL_newstate();
  bool ready = false;
  Lua() {
    luaL_openlibs(state);
    ready = luaL_loadstring(state, kLua) == LUA_OK && lua_pcall(state, 0, 0, 0) == LUA_OK;
  }
  Lua(const Lua&) = delete;
  Lua& operator=(const Lua&) = delete;
  ~Lua() { lua_close(state); }

  bool Serve() {
    lua_getglobal(state, "Serve");
    lua_pushstring(state, "/index");
    lua_pushinteger(state, 7);
    const bool done =
        lua_pcall(state, 2, 1, 0) == LUA_OK && std::string(lua_tostring(state, -1)) == kResult;
    lua_pop(state, 1);
    return done;
  }
};

void RequestOfLua(benchmark::State& state) {
  for (auto _ : state) {
    Lua lua;
    if (!lua.ready || !lua.Serve()) state.SkipWithError("Lua failed");
  }
}
BENCHMARK(RequestOfLua);

void RequestOfLuaKept(benchmark::State& state) {
  Lua lua;
  for (auto _ : state) {
    lua_getglobal(lua.state, "Renew");
    if (lua_pcall(lua.state, 0, 0, 0) != LUA_OK || !lua.Serve()) state.SkipWithError("Lua failed");
  }
}
BENCHMARK(RequestOfLuaKept);

void CallEmptyLuaFunction(benchmark::State& state) {
  Lua lua;
  if (luaL_dostring(lua.state, "function Nothing() end") != LUA_OK)
    state.SkipWithError("Lua failed");
  for (auto _ : state) {
    lua_getglobal(lua.state, "Nothing");
    if (lua_pcall(lua.state, 0, 0, 0) != LUA_OK) state.SkipWithError("Lua failed");
  }
}
BENCHMARK(CallEmptyLuaFunction);

void MemoryOfLua(benchmark::State& state) {
  for (auto _ : state) {
    state.counters["bytes"] = BytesOfEach([] {
      auto lua = std::make_unique<Lua>();
      lua->Serve();
      return lua;
    });
  }
}
BENCHMARK(MemoryOfLua)->Iterations(1);
#endif

}  // namespace
