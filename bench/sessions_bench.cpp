// Requests of a host that keeps 20 variables in each of many sessions, in a file and on a server.
// The server is a redis-server of our own on loopback that keeps nothing on disk.

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "../tests/kel/redisserver.h"
#include "tamber.h"

namespace {

namespace fs = std::filesystem;

constexpr int kVariables = 20;

std::string Script() {
  std::string script;
  for (int i = 0; i < kVariables; ++i) {
    script += i % 2 == 0 ? "session int n" : "session string s";
    script += std::to_string(i) + "\n";
  }
  return script + "proc main()\nn0 = n0 + 1\ns1 = \"text \" + n0\nendproc\n";
}

/// One request: select, load by declaration, run, save.
bool Request(uint32_t session) {
  static const KelString script(Script());
  TamberContext context;
  context.SetIniPath("bench_sessions/tamber.ini");
  context.SetSessionId(session);
  const bool done = context.CompileScriptBuffer("request", script, 1) != 0 &&
                    context.RunProcedure("main", nullptr) != 0;
  context.ResetContext();
  return done;
}

RedisServer& Server() {
  static RedisServer server;
  return server;
}

/// `store` is the line of the INI file that names the store, the argument the number of sessions.
void Requests(benchmark::State& state, const std::string& store) {
  fs::remove_all("bench_sessions");
  fs::create_directory("bench_sessions");
  std::ofstream("bench_sessions/tamber.ini") << "[TamberConfig]\n" << store << "\n";
  const auto sessions = static_cast<uint32_t>(state.range(0));
  for (uint32_t id = 1; id <= sessions; ++id) Request(id);
  uint32_t next = 0;
  for (auto _ : state) {
    next = (next * 7919 + 1) % sessions;
    if (!Request(next + 1)) state.SkipWithError("the request failed");
  }
  state.SetItemsProcessed(state.iterations());
  TamberContext context;
  context.SetIniPath("bench_sessions/tamber.ini");
  if (!context.DoesSessionExist(1)) state.SkipWithError("the session was not kept");
  fs::remove_all("bench_sessions");
}

void SessionsInFile(benchmark::State& state) { Requests(state, "SessionFile=store"); }

void SessionsOnServer(benchmark::State& state) {
  if (!Server().IsUp()) {
    state.SkipWithError("there is no redis-server");
    return;
  }
  Requests(state, "SessionStore=" + Server().Url());
}

/// The same request without a session: what compiling and running costs by itself.
void WithoutSession(benchmark::State& state) {
  for (auto _ : state) Request(0);
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(WithoutSession)->UseRealTime();
BENCHMARK(SessionsInFile)->Arg(100)->Arg(1000)->Arg(10000)->UseRealTime();
BENCHMARK(SessionsOnServer)->Arg(100)->Arg(1000)->Arg(10000)->UseRealTime();

}  // namespace
