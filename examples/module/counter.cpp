// A module that counts: a handle type, a structure, constants, an error code and four functions.
// Built as counter.so, so that its entry points are InitialiseCounterModule and its clean-up.
#include <map>
#include <mutex>

#include "context/tambctxt.h"
#include "functions/module.h"

namespace {

struct Counter {
  int32_t value;
  int32_t calls;
};

/// The counters of one context. Scripts hold their numbers, never their addresses.
struct Counters {
  std::map<intptr_t, Counter> open;
  intptr_t last = 0;
};

// Contexts run in different threads and share the module.
std::mutex mutex;
std::map<TamberContext*, Counters> allCounters;

constexpr int32_t kHighest = 1000;

FUNCMOD_ERROR errors[] = {{0, "COUNTER_ERR_FULL", "The counter has reached its highest value"},
                          {0, "", ""}};

/// The counter with the number that was passed; null, with an error, when there is none.
Counter* PopCounter(FunctionCallInfo* info) {
  const auto number = reinterpret_cast<intptr_t>(info->stack->PopHandle());
  auto& open = allCounters[info->context].open;
  const auto found = open.find(number);
  if (found != open.end()) return &found->second;
  info->errorCode = 107;  // ERR_BADHANDLE
  return nullptr;
}

int32_t CounterOpen(FunctionCallInfo* info) {
  const std::lock_guard lock(mutex);
  Counters& counters = allCounters[info->context];
  counters.open[++counters.last] = {info->stack->PopInteger(), 0};
  info->stack->PushHandle("CounterHandle", reinterpret_cast<void*>(counters.last));
  return 1;
}

int32_t CounterNext(FunctionCallInfo* info) {
  const std::lock_guard lock(mutex);
  Counter* counter = PopCounter(info);
  if (counter != nullptr && counter->value >= kHighest) {
    info->errorCode = info->context->FindErrorCode("COUNTER_ERR_FULL");
  } else if (counter != nullptr) {
    ++counter->value;
    ++counter->calls;
  }
  info->stack->PushInteger(counter != nullptr ? counter->value : 0);
  return 1;
}

int32_t CounterGetInfo(FunctionCallInfo* info) {
  const std::lock_guard lock(mutex);
  const Counter* counter = PopCounter(info);
  Variable* result = info->context->GetType("CounterInfo")->CreateVariable("");
  if (counter != nullptr) {
    result->GetStructElement("Value")->SetIntegerValue(counter->value);
    result->GetStructElement("Calls")->SetIntegerValue(counter->calls);
  }
  info->stack->PushVariable(result);
  return 1;
}

int32_t CounterClose(FunctionCallInfo* info) {
  const std::lock_guard lock(mutex);
  const auto number = reinterpret_cast<intptr_t>(info->stack->PopHandle());
  const bool closed = allCounters[info->context].open.erase(number) != 0;
  if (!closed) info->errorCode = 107;
  info->stack->PushBoolean(closed ? 1 : 0);
  return 1;
}

const FUNCMOD_INTEGER integers[] = {{"COUNTER_HIGHEST", kHighest}, {"", 0}};
const FUNCMOD_OBJECT objects[] = {{"CounterHandle"}, {""}};
const FUNCMOD_STRUCT structs[] = {{"CounterInfo", "int Value; int Calls;", nullptr, nullptr},
                                  {"", "", nullptr, nullptr}};
const FUNCMOD_FUNCTION functions[] = {
    {"CounterHandle CounterOpen (int Start)", CounterOpen, "A new counter.", {}},
    {"int CounterNext (CounterHandle Counter)", CounterNext, "Counts one up.", {}},
    {"CounterInfo CounterGetInfo (CounterHandle Counter)", CounterGetInfo, "How it stands.", {}},
    {"bool CounterClose (CounterHandle Counter)", CounterClose, "Forgets a counter.", {}},
    {"", nullptr, "", {}}};

const FUNCMOD_REGISTRATION registration[] = {
    {FUNCMOD_INTEGERS, integers}, {FUNCMOD_OBJECTS, objects},     {FUNCMOD_STRUCTS, structs},
    {FUNCMOD_ERRORS, errors},     {FUNCMOD_FUNCTIONS, functions}, {FUNCMOD_END, nullptr}};

}  // namespace

extern "C" {
TAMBER_API const FUNCMOD_REGISTRATION* InitialiseCounterModule() { return registration; }

/// Closes what the scripts of this context left open.
TAMBER_API void CleanupCounterModuleEx(TamberContext* context) {
  const std::lock_guard lock(mutex);
  allCounters.erase(context);
}
}
