// Functions of hosts in C that scripts call.

#include <atomic>
#include <utility>
#include <vector>

#include "host/c_context.h"
#include "host/hostfunction.h"
#include "values/cellops.h"
#include "values/errcodes.h"

namespace tamber::host {
namespace {

/// What a function was registered with.
struct Target {
  tamber_function function;
  void* user;
  VariablePtr empty;  ///< of the type that it returns
  KelString name;
  std::vector<Kind> parameters;  ///< Any: a variable
  Kind result;                   ///< in the same way
};

/// What a tamber_call stands for, while the host's function runs.
struct CCall {
  const Target& target;
  const Cell* arguments;  ///< null: variables on the stack
  Stack* stack = nullptr;
  uint32_t base = 0;
  Kind kind = Kind::None;  ///< of what is returned
  Cell result = ZeroCell();
  int32_t errorCode = 0;
  KelString errorText;
  uintptr_t id = 0;
  CCall* outer = nullptr;

  CCall(const Target& called, const Cell* with) : target(called), arguments(with) {}
  CCall(const CCall&) = delete;
  CCall& operator=(const CCall&) = delete;
  ~CCall() { Drop(); }
  void Drop() {
    if (IsManaged(kind)) ReleaseCell(kind, result);
  }
  void Return(Kind given, Cell value) {
    Drop();
    kind = given;
    result = value;
  }
};

/// The calls that run in this thread, and the numbers that it has for further ones. No two calls
/// have the same number, so that one which is over, or another thread's, is refused.
struct Calls {
  CCall* innermost;
  uintptr_t next, end;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local Calls calls{};

uintptr_t NextCall() {
  static std::atomic<uintptr_t> unused{1};
  constexpr uintptr_t kAtOnce = uintptr_t{1} << 16;
  if (calls.next == calls.end) {
    calls.next = unused.fetch_add(kAtOnce, std::memory_order_relaxed);
    calls.end = calls.next + kAtOnce;
  }
  return std::exchange(calls.next, calls.next + 2);
}

CCall* FindCall(const tamber_call* handle) {
  for (CCall* call = calls.innermost; call != nullptr; call = call->outer) {
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

/// A call that scripts make, while it runs.
class CallMark {
 public:
  explicit CallMark(CCall& call) {
    call.id = NextCall();
    call.outer = std::exchange(calls.innermost, &call);
  }
  CallMark(const CallMark&) = delete;
  CallMark& operator=(const CallMark&) = delete;
  ~CallMark() { calls.innermost = calls.innermost->outer; }
};

/// What was returned as a value of the function's type; false when that cannot take it.
bool Convert(CCall& call, Cell& out) {
  const Target& target = call.target;
  VariablePtr result(target.empty->Clone());
  bool fits = true;
  if (call.kind != Kind::None) {
    const VariablePtr given(MakeVariable(TypeDesc::Of(call.kind), Name(), call.result));
    call.kind = Kind::None;
    fits = result->Assign(given.get()) != 0;
  }
  if (target.result == Kind::Any)
    out.v = result.release();
  else
    out = CopyCell(target.result, *CellOf(*result));
  return fits;
}

/// Runs the host's function, whose errors are left in the call.
Cell Invoke(CCall& call) {
  const Target& target = call.target;
  int status = TAMBER_OK;
  {
    const CallMark mark(call);
    status = target.function(reinterpret_cast<tamber_call*>(call.id), target.user);
  }
  Cell out = ZeroCell();
  if (call.kind == target.result) {
    call.kind = Kind::None;
    out = call.result;
  } else if (!Convert(call, out) && call.errorCode == 0) {
    call.errorCode = ERR_ASSIGNMISMATCH;
    call.errorText = target.name;
  }
  if (status != TAMBER_OK && call.errorCode == 0) {
    call.errorCode = ERR_INTERNAL;
    call.errorText = target.name;
  }
  return out;
}

template <class Record>
void Report(CCall& call, Record& record) {
  if (call.errorCode == 0) return;
  record.errorCode = call.errorCode;
  record.errorText = std::move(call.errorText);
}

Cell RunDirectly(TamberContext&, void* target, const Cell* arguments, const Passed&,
                 CallError& error) {
  CCall call(*static_cast<const Target*>(target), arguments);
  const Cell result = Invoke(call);
  Report(call, error);
  return result;
}

int32_t RunOnStack(FunctionCallInfo* info) {
  const auto& target = *static_cast<const Target*>(info->target);
  Stack& stack = *info->stack;
  CCall call(target, nullptr);
  call.stack = &stack;
  call.base = stack.GetSize() - static_cast<uint32_t>(target.parameters.size());
  const Cell result = Invoke(call);
  stack.CutTo(call.base);
  if (target.result == Kind::Any)
    stack.PushVariable(result.v);
  else
    stack.PushCell(target.result, result);
  Report(call, *info);
  return 1;
}

/// Numbers and strings are passed as they are, everything else as variables.
Kind PassedAs(const TypeDesc& type) {
  return type.GetKind() <= Kind::String ? type.GetKind() : Kind::Any;
}

int Register(CContext& context, const char* text, tamber_function function, void* user) {
  const std::shared_ptr<TamberFunction> registered = NewFunction(context.context, text);
  if (registered == nullptr) return TAMBER_FAILED;
  auto target = std::make_shared<Target>();
  target->function = function;
  target->user = user;
  target->empty.reset(registered->GetVariable()->Clone());
  target->name = registered->GetName();
  for (const TypeRef& type : registered->ParameterTypes())
    target->parameters.push_back(PassedAs(*type));
  target->result = PassedAs(*registered->ReturnType());
  registered->SetImplementation(RunOnStack);
  registered->SetDirect({RunDirectly, target->parameters.data(), target->result});
  registered->SetTarget(std::move(target));
  FunctionTraits traits;
  traits.exactResult = registered->Direct().result != Kind::Any;
  registered->SetTraits(traits);
  context.context.AddFunction(std::shared_ptr<const TamberFunction>(registered), true);
  return TAMBER_OK;
}

/// A part of an argument for one of the functions that read.
template <class Read>
int WithArgument(tamber_call* handle, uint32_t position, const char* part, Read&& read) {
  return WithCall(handle, [&](CCall& call) -> int {
    if (position >= call.target.parameters.size() || part == nullptr) return TAMBER_BAD_ARGUMENT;
    if (call.arguments == nullptr)
      return ReadPart(call.stack->GetVariable(call.base + position), part, read);
    const Kind kind = call.target.parameters[position];
    const Cell& argument = call.arguments[position];
    if (kind == Kind::Any) return ReadPart(argument.v, part, read);
    const TypeRef& type = TypeDesc::Of(kind);
    if (*part == '\0') return read(PartView{type.Get(), argument});
    const VariablePtr whole(MakeOwnedVariable(type, Name(), {kind, CopyCell(kind, argument)}));
    return ReadPart(whole.get(), part, read);
  });
}

/// An argument that is passed as it is read; null for every other one.
const Cell* FindPlain(const tamber_call* handle, uint32_t position, Kind kind) {
  const CCall* call = FindCall(handle);
  if (call == nullptr || call->arguments == nullptr) return nullptr;
  const std::vector<Kind>& kinds = call->target.parameters;
  return position < kinds.size() && kinds[position] == kind ? &call->arguments[position] : nullptr;
}

int Return(tamber_call* handle, Kind kind, Cell value) {
  return WithCall(handle, [&](CCall& call) {
    call.Return(kind, value);
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
    *count = static_cast<uint32_t>(own.target.parameters.size());
    return TAMBER_OK;
  });
}

int tamber_arg_int(tamber_call* call, uint32_t position, int32_t* value) {
  const tamber::Cell* plain = FindPlain(call, position, tamber::Kind::Int);
  if (plain == nullptr || value == nullptr) return tamber_arg_part_int(call, position, "", value);
  *value = plain->i;
  return TAMBER_OK;
}

int tamber_arg_double(tamber_call* call, uint32_t position, double* value) {
  const tamber::Cell* plain = FindPlain(call, position, tamber::Kind::Double);
  if (plain == nullptr || value == nullptr)
    return tamber_arg_part_double(call, position, "", value);
  *value = plain->d;
  return TAMBER_OK;
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
  return Return(call, tamber::Kind::Int, tamber::ToCell(value));
}

int tamber_return_double(tamber_call* call, double value) {
  return Return(call, tamber::Kind::Double, tamber::ToCell(value));
}

int tamber_return_text(tamber_call* call, const char* text, size_t length) {
  return WithCall(call, [&](CCall& own) -> int {
    if (!IsText(text, length)) return TAMBER_BAD_ARGUMENT;
    own.Return(tamber::Kind::String, ToCell(std::string_view(text, length)));
    return TAMBER_OK;
  });
}

int tamber_raise(tamber_call* call, int32_t code, const char* text) {
  return WithCall(call, [&](CCall& own) -> int {
    if (text == nullptr || code <= 0) return TAMBER_BAD_ARGUMENT;
    own.errorCode = code;
    own.errorText = KelString(text);
    return TAMBER_OK;
  });
}
