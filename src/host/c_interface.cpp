// Compiling and running for hosts in C.

#include "context/contextstate.h"
#include "host/c_context.h"
#include "host/call.h"
#include "values/errcodes.h"

namespace tamber::host {
namespace {

int Finish(CContext& context, int32_t compiled) {
  context.result.reset();
  return compiled != 0 ? TAMBER_OK : FailureOf(context.context.GetContextError());
}

/// The part of the last result that was chosen, for one of the functions that read.
template <class Read>
int WithResult(tamber_context* handle, Read&& read) {
  return WithContext(
      handle, [&](CContext& own) { return ReadPart(own.result.get(), own.resultPart, read); });
}

}  // namespace

int FailureOf(int32_t code) { return code == ERR_STOPPED ? TAMBER_STOPPED : TAMBER_FAILED; }

}  // namespace tamber::host

using namespace tamber::host;

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

int tamber_push_global(tamber_context* context, const char* name) {
  return WithContext(context, [&](CContext& own) -> int {
    if (name == nullptr) return TAMBER_BAD_ARGUMENT;
    const std::string_view path(name);
    const std::string_view global = tamber::host::NameIn(path);
    Variable* variable = own.context.GetVariable(KelString(global), VARLIST_GLOBAL);
    if (variable == nullptr) return TAMBER_NOT_FOUND;
    const PathEnd end = HoldPart(*variable, path.substr(global.size()), variable);
    if (end == PathEnd::Found) own.stack.PushVariable(variable->Duplicate());
    return StatusOf(end);
  });
}

int tamber_run(tamber_context* context, const char* procedure) {
  return WithContext(context, [&](CContext& own) -> int {
    if (procedure == nullptr) return TAMBER_BAD_ARGUMENT;
    // The script may call the host, and the host run something else, meanwhile.
    Stack stack;
    stack.Swap(own.stack);
    own.result.reset();
    own.resultPart.clear();
    const auto error = RunCall(own.context, procedure, stack, stack.GetSize(), tamber::Kind::None);
    if (error != nullptr) return FailureOf(error->code);
    own.result.reset(stack.PopVariable());
    stack.PopAll();
    if (own.stack.GetSize() == 0) own.stack.Swap(stack);  // its room is used again
    return TAMBER_OK;
  });
}

int tamber_result_part(tamber_context* context, const char* part) {
  return WithContext(context, [&](CContext& own) -> int {
    if (part == nullptr) return TAMBER_BAD_ARGUMENT;
    const int status =
        ReadPart(own.result.get(), part, [](const PartView&) { return int{TAMBER_OK}; });
    if (status == TAMBER_OK) own.resultPart = part;
    return status;
  });
}

int tamber_result_type(tamber_context* context, int* type) {
  return WithContext(context, [&](CContext& own) -> int {
    if (type == nullptr) return TAMBER_BAD_ARGUMENT;
    *type = TAMBER_NOTHING;
    if (own.result == nullptr) return TAMBER_OK;
    return ReadPart(own.result.get(), own.resultPart, [&](const PartView& found) {
      *type = TypeCode(found);
      return int{TAMBER_OK};
    });
  });
}

int tamber_result_size(tamber_context* context, uint32_t* count) {
  return WithResult(context, [&](const PartView& found) { return ReadSize(found, count); });
}

int tamber_result_int(tamber_context* context, int32_t* value) {
  return WithResult(context, [&](const PartView& found) { return ReadInt(found, value); });
}

int tamber_result_double(tamber_context* context, double* value) {
  return WithResult(context, [&](const PartView& found) { return ReadDouble(found, value); });
}

int tamber_result_text(tamber_context* context, const char** text, size_t* length) {
  return WithResult(context, [&](const PartView& found) { return ReadText(found, text, length); });
}

int tamber_result_ints(tamber_context* context, int32_t* values, uint32_t room, uint32_t* count) {
  return WithResult(context,
                    [&](const PartView& found) { return ReadInts(found, values, room, count); });
}

int tamber_result_doubles(tamber_context* context, double* values, uint32_t room, uint32_t* count) {
  return WithResult(context,
                    [&](const PartView& found) { return ReadDoubles(found, values, room, count); });
}
