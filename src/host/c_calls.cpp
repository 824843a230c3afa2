// Functions of hosts in C that scripts call.

#include <atomic>
#include <vector>

#include "host/c_context.h"
#include "host/hostfunction.h"
#include "values/errcodes.h"

namespace tamber::host {
namespace {

/// What a tamber_call stands for, while the host's function runs.
struct CCall {
  uintptr_t id;
  FunctionCallInfo* info;
  uint32_t base;  ///< of the arguments on the stack
  uint32_t count;
  VariablePtr result;
};

thread_local std::vector<CCall*> runningCalls;
std::atomic<uintptr_t> nextCall{1};

CCall* FindCall(const tamber_call* handle) {
  for (CCall* call : runningCalls) {
    if (call->id == reinterpret_cast<uintptr_t>(handle)) return call;
  }
  return nullptr;
}

template <class Body>
int WithCall(const tamber_call* handle, Body&& body) {
  return Guarded([&]() -> int {
    CCall* call = FindCall(handle);
    return call != nullptr ? body(*call) : static_cast<int>(TAMBER_BAD_HANDLE);
  });
}

/// What a function was registered with.
struct Target {
  tamber_function function;
  void* user;
  VariablePtr empty;  ///< of the type that it returns
  KelString name;
  uint32_t count;
};

/// A call that scripts make, while it runs.
class CallMark {
 public:
  explicit CallMark(CCall& call) { runningCalls.push_back(&call); }
  CallMark(const CallMark&) = delete;
  CallMark& operator=(const CallMark&) = delete;
  ~CallMark() { runningCalls.pop_back(); }
};

int32_t RunTarget(FunctionCallInfo* info) {
  const auto& target = *static_cast<const Target*>(info->target);
  Stack& stack = *info->stack;
  const uint32_t base = stack.GetSize() - target.count;
  CCall call{nextCall.fetch_add(2), info, base, target.count, nullptr};
  int status;
  {
    const CallMark mark(call);
    status = target.function(reinterpret_cast<tamber_call*>(call.id), target.user);
  }
  stack.CutTo(base);
  VariablePtr result(target.empty->Clone());
  if (call.result != nullptr && result->Assign(call.result.get()) == 0 && info->errorCode == 0) {
    info->errorCode = ERR_ASSIGNMISMATCH;
    info->errorText = target.name;
  }
  stack.PushVariable(result.release());
  if (status != TAMBER_OK && info->errorCode == 0) {
    info->errorCode = ERR_INTERNAL;
    info->errorText = target.name;
  }
  return 1;
}

int Register(CContext& context, const char* text, tamber_function function, void* user) {
  const std::shared_ptr<TamberFunction> registered = NewFunction(context.context, text);
  if (registered == nullptr) return TAMBER_FAILED;
  auto target = std::make_shared<Target>();
  target->function = function;
  target->user = user;
  target->empty.reset(registered->GetVariable()->Clone());
  target->name = registered->GetName();
  target->count = registered->GetParameterCount();
  registered->SetImplementation(RunTarget);
  registered->SetTarget(std::move(target));
  FunctionTraits traits;
  traits.exactResult = true;
  registered->SetTraits(traits);
  context.context.AddFunction(std::shared_ptr<const TamberFunction>(registered), true);
  return TAMBER_OK;
}

/// A part of an argument for one of the functions that read.
template <class Read>
int WithArgument(tamber_call* handle, uint32_t position, const char* part, Read&& read) {
  return WithCall(handle, [&](CCall& call) -> int {
    if (position >= call.count || part == nullptr) return TAMBER_BAD_ARGUMENT;
    return ReadPart(call.info->stack->GetVariable(call.base + position), part, read);
  });
}

int Return(tamber_call* handle, VariablePtr value) {
  return WithCall(handle, [&](CCall& call) {
    call.result = std::move(value);
    return static_cast<int>(TAMBER_OK);
  });
}

}  // namespace
}  // namespace tamber::host

using namespace tamber::host;

int tamber_register(tamber_context* context, const char* prototype, tamber_function function,
                    void* user) {
  return WithContext(context, [&](CContext& own) -> int {
    if (prototype == nullptr || function == nullptr) return TAMBER_BAD_ARGUMENT;
    return Register(own, prototype, function, user);
  });
}

int tamber_arg_count(tamber_call* call, uint32_t* count) {
  return WithCall(call, [&](const CCall& own) -> int {
    if (count == nullptr) return TAMBER_BAD_ARGUMENT;
    *count = own.count;
    return TAMBER_OK;
  });
}

int tamber_arg_int(tamber_call* call, uint32_t position, int32_t* value) {
  return tamber_arg_part_int(call, position, "", value);
}

int tamber_arg_double(tamber_call* call, uint32_t position, double* value) {
  return tamber_arg_part_double(call, position, "", value);
}

int tamber_arg_text(tamber_call* call, uint32_t position, const char** text, size_t* length) {
  return tamber_arg_part_text(call, position, "", text, length);
}

int tamber_arg_part_type(tamber_call* call, uint32_t position, const char* part, int* type) {
  return WithArgument(call, position, part, [&](const PartView& found) -> int {
    if (type == nullptr) return TAMBER_BAD_ARGUMENT;
    *type = TypeCode(found);
    return TAMBER_OK;
  });
}

int tamber_arg_part_size(tamber_call* call, uint32_t position, const char* part, uint32_t* count) {
  return WithArgument(call, position, part,
                      [&](const PartView& found) { return ReadSize(found, count); });
}

int tamber_arg_part_int(tamber_call* call, uint32_t position, const char* part, int32_t* value) {
  return WithArgument(call, position, part,
                      [&](const PartView& found) { return ReadInt(found, value); });
}

int tamber_arg_part_double(tamber_call* call, uint32_t position, const char* part, double* value) {
  return WithArgument(call, position, part,
                      [&](const PartView& found) { return ReadDouble(found, value); });
}

int tamber_arg_part_text(tamber_call* call, uint32_t position, const char* part, const char** text,
                         size_t* length) {
  return WithArgument(call, position, part,
                      [&](const PartView& found) { return ReadText(found, text, length); });
}

int tamber_return_int(tamber_call* call, int32_t value) {
  return Guarded([&] { return Return(call, IntOf(value)); });
}

int tamber_return_double(tamber_call* call, double value) {
  return Guarded([&] { return Return(call, DoubleOf(value)); });
}

int tamber_return_text(tamber_call* call, const char* text, size_t length) {
  return Guarded([&]() -> int {
    if (!IsText(text, length)) return TAMBER_BAD_ARGUMENT;
    return Return(call, StringOf(text, length));
  });
}

int tamber_raise(tamber_call* call, int32_t code, const char* text) {
  return WithCall(call, [&](CCall& own) -> int {
    if (text == nullptr || code <= 0) return TAMBER_BAD_ARGUMENT;
    own.info->errorCode = code;
    own.info->errorText = KelString(text);
    return TAMBER_OK;
  });
}
