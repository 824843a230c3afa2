#include "modules/tambutil.h"

#include <string>

#include "context/contextstate.h"
#include "context/tambctxt.h"
#include "kel/consolein.h"
#include "kel/sleep.h"
#include "modules/builtin.h"

namespace tamber::utilities {
namespace {

constexpr size_t kLongestLine = 8192;

/// The result has the type of the arguments, which must be two floats or two integers: the declared
/// integer is only what overloads are chosen by.
template <class Choose>
int32_t ChooseOne(FunctionCallInfo& info, Choose choose) {
  Stack& stack = *info.stack;
  if (stack.GetSize() < 2) {
    info.errorCode = ERR_EXPRFUNCPARCOUNT;
    return 0;
  }
  const Operand first = builtin::Read(stack.Peek(1));
  const Operand second = builtin::Read(stack.Peek(0));
  const uint32_t base = stack.GetSize() - 2;
  if (first.kind == Kind::Int && second.kind == Kind::Int) {
    const int32_t chosen = choose(first.cell.i, second.cell.i);
    stack.CutTo(base);
    stack.PushInteger(chosen);
  } else if (first.kind == Kind::Float && second.kind == Kind::Float) {
    const float chosen = choose(first.cell.f, second.cell.f);
    stack.CutTo(base);
    stack.PushFloat(chosen);
  } else {
    stack.CutTo(base);
    stack.PushInteger(0);
    info.errorCode = ERR_EXPRPARMTYPE;
  }
  return 1;
}

int32_t Min(FunctionCallInfo* info) {
  return ChooseOne(*info, [](auto a, auto b) { return a < b ? a : b; });
}

int32_t Max(FunctionCallInfo* info) {
  return ChooseOne(*info, [](auto a, auto b) { return a > b ? a : b; });
}

bool Suspend(Call& call, int64_t milliseconds) {
  kel::SleepFor(milliseconds, &call.Context().State().root->State().run.wake);
  return true;
}

bool Wait(Call& call, int32_t seconds) { return Suspend(call, int64_t{seconds} * 1000); }
bool Sleep(Call& call, int32_t milliseconds) { return Suspend(call, milliseconds); }

/// The C library's generator is shared with the host and differs between systems. This is the one
/// that the C standard prints, so that a script meets the same numbers everywhere.
int32_t Rand() {
  thread_local uint32_t next = 1;
  next = next * 1103515245 + 12345;
  return static_cast<int32_t>((next / 65536) % 32768);
}

std::string ReadLine(Call& call) {
  // Whoever is to answer sees the question first.
  call.Context().FlushOutput();
  std::string line;
  kel::ReadConsoleLine(line, kLongestLine);
  return line;
}

int32_t Print(Call& call, std::string_view text) {
  call.Context().AppendOutput(text);
  return static_cast<int32_t>(text.size());
}

bool DebugFlushOutput(Call& call) {
  call.Context().FlushOutput();
  return true;
}

bool DebugDump(Call& call, std::string_view section) {
  call.Context().PerformDumps(section, nullptr);
  return true;
}

constexpr FunctionTraits kExact{.exactResult = true, .localsBlind = true};
constexpr FunctionTraits kSeesLocals{.exactResult = true, .usesLocals = true};
/// What is pushed is not of the declared type.
constexpr FunctionTraits kInexact{.exactResult = false, .localsBlind = true};

const FUNCMOD_FUNCTION* Functions() {
  static const FUNCMOD_FUNCTION functions[] = {
      {"int Min (int Value1, int Value2)",
       {Min, Inlined::Min},
       "The smaller of two integers or two floats.",
       kInexact},
      {"int Max (int Value1, int Value2)",
       {Max, Inlined::Max},
       "The larger of two integers or two floats.",
       kInexact},
      {"int Wait (int Seconds)", Wrap<Wait>, "Suspends the script for some seconds.", kInexact},
      {"int Sleep (int MilliSeconds)", Wrap<Sleep>, "Suspends the script for some milliseconds.",
       kInexact},
      {"int Rand ()", Wrap<Rand>, "The next pseudo-random number, from 0 to 32767.", kExact},
      {"string ReadLine ()", Wrap<ReadLine>, "One line from standard input, without its end.",
       kExact},
      {"int Print (string Text)", Wrap<Print>,
       "Writes a string to the script's output and returns its length in bytes.", kExact},
      {"bool DebugFlushOutput ()", Wrap<DebugFlushOutput>,
       "Pushes the script's output to standard output.", kExact},
      {"bool DebugDump (string SectionName)", Wrap<DebugDump>,
       "Writes the diagnostic dump that the INI file asks for in a section.", kSeesLocals},
      {"", nullptr, "", {}},
  };
  return functions;
}

}  // namespace
}  // namespace tamber::utilities

const FUNCMOD_REGISTRATION* GetSystemModule() {
  static const FUNCMOD_REGISTRATION registration[] = {
      {FUNCMOD_FUNCTIONS, tamber::utilities::Functions()},
      {FUNCMOD_END, nullptr},
  };
  return registration;
}
