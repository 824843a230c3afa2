// The context is tested with a few built-ins of its own; those of the library stand above it, and
// tests that need them are those of the host.
#include "context/builtinmodules.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "context/tambctxt.h"

namespace {

int32_t Print(FunctionCallInfo* info) {
  const uint32_t length = info->stack->GetEntryLength(0);
  const std::unique_ptr<char, decltype(&std::free)> text(info->stack->PopString(), &std::free);
  info->context->AppendOutput(std::string_view(text.get(), length));
  info->stack->PushInteger(1);
  return 1;
}

int32_t ArrayGetSize(FunctionCallInfo* info) {
  Variable* array = info->stack->PopVariable();
  info->stack->PushInteger(static_cast<int32_t>(array->GetElementCount()));
  Variable::Delete(array);
  return 1;
}

int32_t DebugDump(FunctionCallInfo* info) {
  const std::unique_ptr<char, decltype(&std::free)> section(info->stack->PopString(), &std::free);
  info->context->PerformDumps(KelString(section.get()), nullptr);
  info->stack->PushInteger(1);
  return 1;
}

int32_t LeaveError(FunctionCallInfo* info) {
  info->errorCode = info->stack->PopInteger();
  info->stack->PushInteger(0);
  return 1;
}

int32_t Max(FunctionCallInfo* info) {
  const int32_t second = info->stack->PopInteger();
  info->stack->PushInteger(std::max(info->stack->PopInteger(), second));
  return 1;
}

int32_t Rand(FunctionCallInfo* info) {
  info->stack->PushInteger(std::rand());
  return 1;
}

const FUNCMOD_FUNCTION kFunctions[] = {{"int Print (string Text)", Print, "", {}},
                                       {"int ArrayGetSize (array Array)", ArrayGetSize, "", {}},
                                       {"int DebugDump (string Section)", DebugDump, "", {}},
                                       {"int LeaveError (int Code)", LeaveError, "", {}},
                                       {"int Max (int First, int Second)", Max, "", {}},
                                       {"int Rand ()", Rand, "", {}},
                                       {"", nullptr, "", {}}};
const FUNCMOD_REGISTRATION kModule[] = {{FUNCMOD_FUNCTIONS, kFunctions}, {FUNCMOD_END, nullptr}};

}  // namespace

std::vector<const FUNCMOD_REGISTRATION*> tamber::BuiltInModules() { return {kModule}; }
