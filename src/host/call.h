#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "context/tambctxt.h"
#include "host/value.h"

/// \file
/// Calls of script procedures with C++ values:
///
///     if (auto area = Call<int32_t>(context, "Area", 3, 4.0)) Use(area.Value());
///     else Show(area.Error());

namespace tamber {

/// What a call returned: a value, or the error that ended it.
template <class T>
class Result {
 public:
  Result(T value) : value_(std::move(value)) {}
  Result(std::unique_ptr<TamberDiagnostic> error) : error_(std::move(error)) {}

  bool IsOk() const { return value_.has_value(); }
  explicit operator bool() const { return IsOk(); }
  /// Only when the call went well.
  T& Value() & { return *value_; }
  const T& Value() const& { return *value_; }
  T&& Value() && { return *std::move(value_); }
  T ValueOr(T other) const& { return value_ ? *value_ : std::move(other); }
  T ValueOr(T other) && { return value_ ? *std::move(value_) : std::move(other); }
  /// Only when it did not.
  const TamberDiagnostic& Error() const { return *error_; }

 private:
  std::optional<T> value_;
  std::unique_ptr<TamberDiagnostic> error_;
};

/// Of a call without a value.
template <>
class Result<void> {
 public:
  Result() = default;
  Result(std::unique_ptr<TamberDiagnostic> error) : error_(std::move(error)) {}

  bool IsOk() const { return error_ == nullptr; }
  explicit operator bool() const { return IsOk(); }
  const TamberDiagnostic& Error() const { return *error_; }

 private:
  std::unique_ptr<TamberDiagnostic> error_;
};

namespace host {

/// The stack that calls into this context use; what lies on it belongs to calls around this one.
TAMBER_API Stack& CallStack(TamberContext& context);
/// Runs a procedure with the `arguments` topmost entries, and leaves its value when one is wanted
/// (`result` is not None). Null when all went well, and then nothing but the value is left.
TAMBER_API std::unique_ptr<TamberDiagnostic> RunCall(TamberContext& context,
                                                     std::string_view procedure, Stack& stack,
                                                     uint32_t arguments, Kind result);

/// The same of a call without arguments whose value nobody wants; leaves nothing on the stack.
TAMBER_API std::unique_ptr<TamberDiagnostic> RunPlain(TamberContext& context,
                                                      std::string_view procedure);

/// Reports an argument, or a result, that cannot be converted.
TAMBER_API std::unique_ptr<TamberDiagnostic> RefuseCall(TamberContext& context,
                                                        std::string_view procedure, int32_t code,
                                                        std::string_view text);

/// Takes entries off again, however a call ends.
class StackMark {
 public:
  explicit StackMark(Stack& stack) : stack_(stack), size_(stack.GetSize()) {}
  StackMark(const StackMark&) = delete;
  StackMark& operator=(const StackMark&) = delete;
  ~StackMark() {
    if (stack_.GetSize() > size_) stack_.CutTo(size_);
  }
  uint32_t Size() const { return size_; }

 private:
  Stack& stack_;
  uint32_t size_;
};

}  // namespace host
}  // namespace tamber

/// Runs a procedure of the context's scripts. Arguments are converted as script assignments are; a
/// `Variable*` can also be taken by a reference parameter. A number as a result is converted from
/// any number; `void` takes nothing and leaves a value alone.
///
/// A procedure that does not exist, a wrong number of arguments, one that the parameter cannot
/// take, a null `Variable*`, and a value of the wrong type are errors, as are those of the script.
/// They are reported in the ways that the context reports errors. Throws only std::bad_alloc.
template <tamber::host::Taken R = void, tamber::host::Argument... Args>
tamber::Result<R> Call(TamberContext& context, std::string_view procedure, const Args&... args) {
  namespace host = tamber::host;
  constexpr tamber::Kind kResult = host::KindFor<R>();
  if constexpr (sizeof...(Args) == 0 && kResult == tamber::Kind::None)
    return host::RunPlain(context, procedure);
  Stack& stack = host::CallStack(context);
  const host::StackMark mark(stack);
  try {
    (host::Push(stack, args), ...);
  } catch (const tamber::ScriptError& error) {
    return host::RefuseCall(context, procedure, error.Code(), error.what());
  }
  constexpr auto kCount = static_cast<uint32_t>(sizeof...(Args));
  if (auto error = host::RunCall(context, procedure, stack, kCount, kResult)) return error;
  if constexpr (kResult == tamber::Kind::None) {
    return {};
  } else if constexpr (kResult == tamber::Kind::Any) {
    tamber::VariablePtr value(stack.PopVariable());
    if constexpr (host::Composed<R>) {
      try {
        return host::FromScript<R>(*value);
      } catch (const tamber::ScriptError& error) {
        return host::RefuseCall(context, procedure, error.Code(), error.what());
      }
    } else {
      return value;
    }
  } else {
    return host::Read<R>(stack, mark.Size());
  }
}
