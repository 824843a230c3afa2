// A module with a list of every kind, and both clean-ups.
#include "context/tambctxt.h"

extern "C" TAMBER_API int cleanupCount;  // the test's

namespace {

int32_t Twice(FunctionCallInfo* info) {
  info->stack->PushInteger(info->stack->PopInteger() * 2);
  return 1;
}

int32_t FixedRand(FunctionCallInfo* info) {
  info->stack->PushInteger(42);
  return 1;
}

int32_t Failing(FunctionCallInfo* info);

int32_t ContextOf(FunctionCallInfo* info, TamberContext* context) {
  info->stack->PushBoolean(context == info->context ? 1 : 0);
  return 1;
}

/// Asks for what would unload the code that asks.
int32_t Reset(FunctionCallInfo* info) {
  info->context->ResetContext();
  info->stack->PushInteger(info->context->GetContextError());
  info->context->SetContextError(0, "");
  return 1;
}

const Variable* addressPrototype = nullptr;
std::map<const TamberContext*, const Variable*> rangePrototypes;

const FUNCMOD_INTEGER integers[] = {{"NET_PORT", 80}, {"", 0}};
const FUNCMOD_STRING strings[] = {{"NET_HOST", "localhost"}, {"", ""}};
const FUNCMOD_OBJECT objects[] = {{"NetHandle"}, {""}};
const FUNCMOD_STRUCT structs[] = {
    {"NetAddress", "string Host; int Port;", &addressPrototype, nullptr},
    {"NetRange", "NetAddress First, Last; int[] Ports;", nullptr, &rangePrototypes},
    {"", "", nullptr, nullptr}};
FUNCMOD_ERROR errors[] = {
    {0, "NET_ERR_DOWN", "The net is down"}, {0, "NET_ERR_SLOW", "The net is slow"}, {0, "", ""}};
const FUNCMOD_FUNCTION functions[] = {
    {"int NetTwice (int Value)", Twice, "Twice the value.", {}},
    {"int NetBroken (Unknown Value)", Twice, "", {}},
    {"NetAddress NetFind (NetHandle Handle, NetAddress From)", nullptr, "", {}},
    {"int NetFail ()", Failing, "", {}},
    {"int NetReset ()", Reset, "", {}},
    {"", nullptr, "", {}}};
const FUNCMOD_FUNCTION replacing[] = {{"int Rand ()", FixedRand, "", {}}, {"", nullptr, "", {}}};
const FUNCMOD_FUNCTION withContext[] = {{"bool NetContext ()", nullptr, "", {}, ContextOf},
                                        {"", nullptr, "", {}}};

const FUNCMOD_REGISTRATION registration[] = {{FUNCMOD_CONTEXT_FUNCTIONS, withContext},
                                             {FUNCMOD_REPLACING_FUNCTIONS, replacing},
                                             {FUNCMOD_FUNCTIONS, functions},
                                             {FUNCMOD_ERRORS, errors},
                                             {FUNCMOD_STRUCTS, structs},
                                             {FUNCMOD_OBJECTS, objects},
                                             {FUNCMOD_STRINGS, strings},
                                             {FUNCMOD_INTEGERS, integers},
                                             {FUNCMOD_END, nullptr}};

int32_t Failing(FunctionCallInfo* info) {
  info->errorCode = info->context->FindErrorCode("net_err_slow");
  info->stack->PushInteger(0);
  return 1;
}

}  // namespace

extern "C" {
TAMBER_API const FUNCMOD_REGISTRATION* InitialiseNetutilModule() { return registration; }
TAMBER_API void CleanupNetutilModule() { cleanupCount += 1000; }
TAMBER_API void CleanupNetutilModuleEx(TamberContext* context) {
  if (context != nullptr && context->GetVariable("NET_PORT", VARLIST_CONSTANT) != nullptr) {
    cleanupCount += 1;
  }
}
}
