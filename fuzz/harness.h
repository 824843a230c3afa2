#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "budget.h"
#include "playground.h"
#include "tamber.h"

/// What the fuzzers of scripts share.
namespace fuzz {

/// A context that shows nothing to anybody and may do nothing outside of the playground.
inline void Prepare(TamberContext& context) {
  const Playground& playground = Playground::Get();
  context.SetIniPath(playground.IniPath());
  context.SetFilePolicy(playground.Policy());
  context.SetOutputSink([](std::string_view, void*) {}, nullptr);
  context.SetReportSink([](const KelString&, std::string_view, void*) { return true; }, nullptr);
  // No script may make code that is not sound, or let an exception of the engine's own escape.
  context.SetDiagnosticHandler(
      [](const TamberDiagnostic& error, void*) {
        if (error.code != ERR_INTERNAL) return;
        for (const char* fault : {": instruction ", "::_M_"})
          if (error.detail.View().find(fault) != std::string_view::npos) __builtin_trap();
      },
      nullptr);
}

/// A prepared context; every other input gets one of a program.
inline std::unique_ptr<TamberContext> MakeContext(bool ofProgram) {
  static const std::shared_ptr<const TamberProgram> program = [] {
    TamberContext context;
    Prepare(context);
    return context.Freeze();
  }();
  if (ofProgram) return std::make_unique<TamberContext>(program);
  auto context = std::make_unique<TamberContext>();
  Prepare(*context);
  return context;
}

/// A program of a script that is known to compile.
inline std::shared_ptr<const TamberProgram> MakeProgram(TamberContext& context,
                                                        const std::string& script) {
  if (!context.CompileScriptBuffer("declarations", script, 1)) __builtin_trap();
  return context.Freeze();
}

/// Carries out an input, and makes sure that no value of it stays. What the process makes once and
/// keeps is no leak, so that another run decides.
template <class Body>
void WithoutLeak(const Body& body) {
  constexpr int kRuns = 3;
  for (int run = 0; run < kRuns; ++run) {
    const int64_t before = Variable::LiveCount();
    Playground::Get().Enter();
    body();
    Playground::Get().Leave();
    if (Variable::LiveCount() == before) return;
  }
  __builtin_trap();
}

}  // namespace fuzz
