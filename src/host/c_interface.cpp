#include <atomic>
#include <mutex>
#include <new>
#include <unordered_map>

#include "context/contextstate.h"
#include "host/call.h"
#include "host/hostfunction.h"
#include "host/value.h"
#include "tamber_c.h"
#include "values/cellops.h"
#include "values/errcodes.h"

namespace {

using tamber::Kind;
using tamber::VariablePtr;

/// What a tamber_context stands for.
struct CContext {
  TamberContext context;
  Stack stack;  ///< the arguments of the next run
  VariablePtr result;
  tamber_output output = nullptr;
  void* outputUser = nullptr;
};

/// What a tamber_call stands for, while the host's function runs.
struct CCall {
  uintptr_t id;
  FunctionCallInfo* info;
  uint32_t base;  ///< of the arguments on the stack
  uint32_t count;
  VariablePtr result;
};

/// The contexts that are there. Numbers are never used twice, so that a stale one stays refused.
class Contexts {
 public:
  tamber_context* Add(std::shared_ptr<CContext> context) {
    const std::lock_guard lock(mutex_);
    // Odd, as no pointer to an object is: the two cannot be taken for each other.
    const uintptr_t id = next_;
    next_ += 2;
    contexts_.emplace(id, std::move(context));
    return reinterpret_cast<tamber_context*>(id);
  }
  std::shared_ptr<CContext> Find(const tamber_context* handle) {
    const std::lock_guard lock(mutex_);
    const auto found = contexts_.find(reinterpret_cast<uintptr_t>(handle));
    return found != contexts_.end() ? found->second : nullptr;
  }
  /// Null when there is none. What is handed back is destroyed outside the lock.
  std::shared_ptr<CContext> Remove(const tamber_context* handle) {
    const std::lock_guard lock(mutex_);
    auto node = contexts_.extract(reinterpret_cast<uintptr_t>(handle));
    return node ? std::move(node.mapped()) : nullptr;
  }

 private:
  std::mutex mutex_;
  uintptr_t next_ = 1;
  std::unordered_map<uintptr_t, std::shared_ptr<CContext>> contexts_;
};

Contexts& AllContexts() {
  // Never destroyed: hosts free contexts from destructors of their own.
  static auto* const contexts = new Contexts;
  return *contexts;
}

thread_local std::vector<CCall*> runningCalls;
std::atomic<uintptr_t> nextCall{1};

CCall* FindCall(const tamber_call* handle) {
  for (CCall* call : runningCalls) {
    if (call->id == reinterpret_cast<uintptr_t>(handle)) return call;
  }
  return nullptr;
}

/// Nothing is thrown into C.
template <class Body>
int Guarded(Body&& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return TAMBER_NO_MEMORY;
  } catch (...) {
    return TAMBER_FAILED;
  }
}

template <class Body>
int WithContext(const tamber_context* handle, Body&& body) {
  return Guarded([&] {
    const std::shared_ptr<CContext> context = AllContexts().Find(handle);
    return context != nullptr ? body(*context) : static_cast<int>(TAMBER_BAD_HANDLE);
  });
}

template <class Body>
int WithCall(const tamber_call* handle, Body&& body) {
  return Guarded([&] {
    CCall* call = FindCall(handle);
    return call != nullptr ? body(*call) : static_cast<int>(TAMBER_BAD_HANDLE);
  });
}

bool IsText(const char* text, size_t length) {
  return (text != nullptr || length == 0) && length <= UINT32_MAX;
}

KelString TextOf(const char* text, size_t length) {
  return length == 0 ? KelString() : KelString(text, length);
}

int TypeCode(const Variable* variable) {
  if (variable == nullptr) return TAMBER_NOTHING;
  const int32_t id = variable->GetTypeId();
  return id >= Variable::Boolean && id <= Variable::String ? id : TAMBER_OTHER;
}

bool IsNumber(const Variable& variable) {
  const int type = TypeCode(&variable);
  return type >= TAMBER_BOOL && type <= TAMBER_DOUBLE;
}

int ReadInt(const Variable* variable, int32_t* value) {
  if (value == nullptr) return TAMBER_BAD_ARGUMENT;
  if (variable == nullptr) return TAMBER_NOT_FOUND;
  if (!IsNumber(*variable)) return TAMBER_WRONG_TYPE;
  *value = variable->GetIntegerValue();
  return TAMBER_OK;
}

int ReadDouble(const Variable* variable, double* value) {
  if (value == nullptr) return TAMBER_BAD_ARGUMENT;
  if (variable == nullptr) return TAMBER_NOT_FOUND;
  if (!IsNumber(*variable)) return TAMBER_WRONG_TYPE;
  *value = variable->GetDoubleValue();
  return TAMBER_OK;
}

int ReadText(Variable* variable, const char** text, size_t* length) {
  if (text == nullptr) return TAMBER_BAD_ARGUMENT;
  if (variable == nullptr) return TAMBER_NOT_FOUND;
  if (TypeCode(variable) != TAMBER_TEXT) return TAMBER_WRONG_TYPE;
  *text = variable->GetStringValue();
  if (length != nullptr) *length = variable->GetLength();
  return TAMBER_OK;
}

Variable* FindValue(CContext& context, const char* name) {
  return context.context.GetVariable(KelString(name), VARLIST_GLOBAL | VARLIST_CONSTANT);
}

/// Finds a variable for one of the functions that read.
template <class Read>
int WithValue(tamber_context* handle, const char* name, Read&& read) {
  return WithContext(handle, [&](CContext& context) {
    return name != nullptr ? read(FindValue(context, name)) : static_cast<int>(TAMBER_BAD_ARGUMENT);
  });
}

/// Assigns to a global as a script would.
int SetValue(tamber_context* handle, const char* name, VariablePtr value) {
  return WithContext(handle, [&](CContext& context) -> int {
    if (name == nullptr) return TAMBER_BAD_ARGUMENT;
    Variable* variable = context.context.GetVariable(KelString(name), VARLIST_GLOBAL);
    if (variable == nullptr) return TAMBER_NOT_FOUND;
    return variable->Assign(value.get()) != 0 ? TAMBER_OK : TAMBER_WRONG_TYPE;
  });
}

VariablePtr NumberOf(Kind kind, tamber::Cell cell) {
  return VariablePtr(tamber::MakeVariable(tamber::TypeDesc::Of(kind), tamber::Name(), cell));
}

VariablePtr IntOf(int32_t value) { return NumberOf(Kind::Int, tamber::IntCell(value)); }

VariablePtr DoubleOf(double value) {
  tamber::Cell cell = tamber::ZeroCell();
  cell.d = value;
  return NumberOf(Kind::Double, cell);
}

VariablePtr StringOf(const char* text, size_t length) {
  VariablePtr value(tamber::MakeVariable(tamber::TypeDesc::Of(Kind::String), tamber::Name()));
  value->SetStringValue(TextOf(text, length));
  return value;
}

int Finish(CContext& context, int32_t compiled) {
  context.result.reset();
  return compiled != 0 ? TAMBER_OK : TAMBER_FAILED;
}

// --- functions of the host ---

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
  const std::shared_ptr<TamberFunction> registered =
      tamber::host::NewFunction(context.context, text);
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

/// An argument for one of the functions that read.
template <class Read>
int WithArgument(tamber_call* handle, uint32_t position, Read&& read) {
  return WithCall(handle, [&](CCall& call) {
    return position < call.count ? read(call.info->stack->GetVariable(call.base + position))
                                 : static_cast<int>(TAMBER_BAD_ARGUMENT);
  });
}

int Return(tamber_call* handle, VariablePtr value) {
  return WithCall(handle, [&](CCall& call) {
    call.result = std::move(value);
    return static_cast<int>(TAMBER_OK);
  });
}

}  // namespace

const char* tamber_version(void) { return TAMBER_LIBRARY_VERSION; }

tamber_context* tamber_new(void) {
  try {
    return AllContexts().Add(std::make_shared<CContext>());
  } catch (...) {
    return nullptr;
  }
}

int tamber_free(tamber_context* context) {
  return Guarded(
      [&] { return AllContexts().Remove(context) != nullptr ? TAMBER_OK : TAMBER_BAD_HANDLE; });
}

int tamber_set_ini(tamber_context* context, const char* path) {
  return WithContext(context, [&](CContext& own) -> int {
    if (path == nullptr) return TAMBER_BAD_ARGUMENT;
    own.context.SetIniPath(KelString(path));
    return TAMBER_OK;
  });
}

int tamber_set_output(tamber_context* context, tamber_output output, void* user) {
  return WithContext(context, [&](CContext& own) -> int {
    own.output = output;
    own.outputUser = user;
    if (output == nullptr) {
      own.context.SetOutputSink(nullptr, nullptr);
      return TAMBER_OK;
    }
    own.context.SetOutputSink(
        [](std::string_view text, void* target) {
          const auto& sink = *static_cast<CContext*>(target);
          sink.output(text.data(), text.size(), sink.outputUser);
        },
        &own);
    return TAMBER_OK;
  });
}

int tamber_compile_file(tamber_context* context, const char* path) {
  return WithContext(context, [&](CContext& own) -> int {
    if (path == nullptr) return TAMBER_BAD_ARGUMENT;
    return Finish(own, own.context.CompileScriptFile(KelString(path)));
  });
}

int tamber_compile_text(tamber_context* context, const char* name, const char* text,
                        size_t length) {
  return WithContext(context, [&](CContext& own) -> int {
    if (name == nullptr || !IsText(text, length)) return TAMBER_BAD_ARGUMENT;
    return Finish(own, own.context.CompileScriptBuffer(KelString(name), TextOf(text, length), 1));
  });
}

int tamber_push_bool(tamber_context* context, int value) {
  return WithContext(context, [&](CContext& own) {
    own.stack.PushBoolean(value != 0);
    return static_cast<int>(TAMBER_OK);
  });
}

int tamber_push_int(tamber_context* context, int32_t value) {
  return WithContext(context, [&](CContext& own) {
    own.stack.PushInteger(value);
    return static_cast<int>(TAMBER_OK);
  });
}

int tamber_push_double(tamber_context* context, double value) {
  return WithContext(context, [&](CContext& own) {
    own.stack.PushDouble(value);
    return static_cast<int>(TAMBER_OK);
  });
}

int tamber_push_text(tamber_context* context, const char* text, size_t length) {
  return WithContext(context, [&](CContext& own) -> int {
    if (!IsText(text, length)) return TAMBER_BAD_ARGUMENT;
    own.stack.PushString(TextOf(text, length));
    return TAMBER_OK;
  });
}

int tamber_run(tamber_context* context, const char* procedure) {
  return WithContext(context, [&](CContext& own) -> int {
    if (procedure == nullptr) return TAMBER_BAD_ARGUMENT;
    // The script may call the host, and the host run something else, meanwhile.
    Stack stack;
    std::swap(stack, own.stack);
    own.result.reset();
    const auto error =
        tamber::host::RunCall(own.context, procedure, stack, stack.GetSize(), Kind::None);
    if (error != nullptr) return TAMBER_FAILED;
    own.result.reset(stack.PopVariable());
    return TAMBER_OK;
  });
}

int tamber_result_type(tamber_context* context, int* type) {
  return WithContext(context, [&](CContext& own) -> int {
    if (type == nullptr) return TAMBER_BAD_ARGUMENT;
    *type = TypeCode(own.result.get());
    return TAMBER_OK;
  });
}

int tamber_result_int(tamber_context* context, int32_t* value) {
  return WithContext(context, [&](CContext& own) { return ReadInt(own.result.get(), value); });
}

int tamber_result_double(tamber_context* context, double* value) {
  return WithContext(context, [&](CContext& own) { return ReadDouble(own.result.get(), value); });
}

int tamber_result_text(tamber_context* context, const char** text, size_t* length) {
  return WithContext(context,
                     [&](CContext& own) { return ReadText(own.result.get(), text, length); });
}

int tamber_get_type(tamber_context* context, const char* name, int* type) {
  return WithValue(context, name, [&](const Variable* variable) -> int {
    if (type == nullptr) return TAMBER_BAD_ARGUMENT;
    *type = TypeCode(variable);
    return variable != nullptr ? TAMBER_OK : TAMBER_NOT_FOUND;
  });
}

int tamber_get_int(tamber_context* context, const char* name, int32_t* value) {
  return WithValue(context, name,
                   [&](const Variable* variable) { return ReadInt(variable, value); });
}

int tamber_get_double(tamber_context* context, const char* name, double* value) {
  return WithValue(context, name,
                   [&](const Variable* variable) { return ReadDouble(variable, value); });
}

int tamber_get_text(tamber_context* context, const char* name, const char** text, size_t* length) {
  return WithValue(context, name,
                   [&](Variable* variable) { return ReadText(variable, text, length); });
}

int tamber_set_int(tamber_context* context, const char* name, int32_t value) {
  return Guarded([&] { return SetValue(context, name, IntOf(value)); });
}

int tamber_set_double(tamber_context* context, const char* name, double value) {
  return Guarded([&] { return SetValue(context, name, DoubleOf(value)); });
}

int tamber_set_text(tamber_context* context, const char* name, const char* text, size_t length) {
  return Guarded([&]() -> int {
    if (!IsText(text, length)) return TAMBER_BAD_ARGUMENT;
    return SetValue(context, name, StringOf(text, length));
  });
}

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
  return WithArgument(call, position,
                      [&](const Variable* argument) { return ReadInt(argument, value); });
}

int tamber_arg_double(tamber_call* call, uint32_t position, double* value) {
  return WithArgument(call, position,
                      [&](const Variable* argument) { return ReadDouble(argument, value); });
}

int tamber_arg_text(tamber_call* call, uint32_t position, const char** text, size_t* length) {
  return WithArgument(call, position,
                      [&](Variable* argument) { return ReadText(argument, text, length); });
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

int tamber_get_error(tamber_context* context, tamber_error* error) {
  return WithContext(context, [&](CContext& own) -> int {
    if (error == nullptr) return TAMBER_BAD_ARGUMENT;
    const TamberDiagnostic& last = own.context.GetDiagnostic();
    *error = {last.code,
              last.line,
              last.column,
              last.name.GetString(),
              last.text.GetString(),
              last.detail.GetString(),
              last.file.GetString(),
              last.sourceLine.GetString(),
              last.procedure.GetString()};
    return TAMBER_OK;
  });
}
