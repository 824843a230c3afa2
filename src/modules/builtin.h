#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

#include "context/handletable.h"
#include "engine/stack.h"
#include "functions/function.h"
#include "kel/stop.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/errcodes.h"
#include "values/strbuf.h"
#include "values/variable.h"

/// How a plain C++ function becomes a built-in.
///
///     int32_t Find(Call& call, std::string_view value, std::string_view part);
///     ... {"int StrFind (string Value, string SubString)", Wrap<Find>, ...}
///
/// `Wrap` hands over the arguments by the types of the body's parameters and takes the result by
/// its type: from and to the stack, or as the values that running code has in its registers. A body
/// that can fail, that needs the context or that can take long takes a `Call&` first; it may be
/// left by any call of kel::CheckStop.
///
/// | parameter | what it gets |
/// |---|---|
/// | `int32_t` `bool` `char` `float` `double` | the value through the getter of that type |
/// | `std::string_view` | the text, borrowed until the body returns; "" for what is no text |
/// | `const ArrayData*` | the array, borrowed; null is an empty one |
/// | `ArrayOperand` | the array with its type, borrowed; not an array: what it says |
/// | `Handle` | the number of a handle |
/// | `Operand` | whatever was passed, borrowed |
/// | `Variable*` | the variable that was passed, on loan; for parameters that the body changes |
///
/// | result | what scripts get |
/// |---|---|
/// | `int32_t` `bool` `char` `float` `double` | the value, whatever type the prototype says |
/// | `std::string_view` `std::string` `KelString` | a text |
/// | `Text` | a text, handed over without a copy |
/// | `ArrayResult` | an array, handed over |
/// | `Variable*` | its holder is handed over |
namespace tamber {

/// The running call, as a body sees it.
class Call {
 public:
  explicit Call(TamberContext& context) : context_(context) {}

  /// Reports a failure: below 20000 a run-time error beside the result, above it the run ends. The
  /// text says what it is about, of very long ones how they begin.
  void Fail(int32_t code, std::string_view text) {
    errorCode_ = code;
    errorText_ = KelString(Shown(text));
  }
  /// How a text begins, for messages.
  static std::string_view Shown(std::string_view text) { return text.substr(0, 8192); }
  bool HasFailed() const { return errorCode_ != 0; }
  TamberContext& Context() const { return context_; }

  /// Hands the failure on to the record of the call.
  template <class Record>
  void Report(Record& record) {
    if (!HasFailed()) return;
    record.errorCode = errorCode_;
    record.errorText = std::move(errorText_);
  }

 private:
  TamberContext& context_;
  int32_t errorCode_ = 0;
  KelString errorText_;
};

/// A value of any kind, borrowed; variables and references are looked through.
struct Operand {
  Kind kind;
  Cell cell;

  std::string_view AsText() const {
    if (kind == Kind::String) return TextOf(cell.s);
    if (kind != Kind::EString) return {};
    const char* text = cell.v->GetStringValue();
    return {text, cell.v->GetLength()};
  }
};

/// What was passed for a parameter of type `array`: the value, borrowed, and its type.
struct ArrayOperand {
  bool isArray;  ///< false: something else was passed, and the rest is an empty generic array
  TypeRef type;
  ArrayData* data;  ///< null is an empty array; never to be changed
};

/// A handle: the number that a table of the context knows an object by. 0 is the null handle, and
/// what an argument of another type gives. A result says which handle type it is.
struct Handle {
  int32_t id = 0;
  const char* typeName = "";
};

/// A text on its way to the stack: owns its buffer; null is the empty text.
class Text {
 public:
  Text() = default;
  explicit Text(StrBuf* buffer) : buffer_(buffer) {}
  explicit Text(std::string_view text) : buffer_(text.empty() ? nullptr : StrBuf::New(text)) {}
  Text(Text&& other) noexcept : buffer_(std::exchange(other.buffer_, nullptr)) {}
  Text& operator=(Text&& other) noexcept {
    std::swap(buffer_, other.buffer_);
    return *this;
  }
  ~Text() {
    if (buffer_ != nullptr) Release(buffer_);
  }
  std::string_view View() const { return TextOf(buffer_); }
  Cell TakeCell() {
    Cell cell = ZeroCell();
    cell.s = std::exchange(buffer_, nullptr);
    return cell;
  }

 private:
  StrBuf* buffer_ = nullptr;
};

/// Builds a text where it will stay. Throws std::bad_alloc as StrBuf does.
class TextBuilder {
 public:
  /// With room for `expected` bytes; more is taken as needed, amortised.
  explicit TextBuilder(uint64_t expected) : buffer_(StrBuf::NewRaw(expected)) {
    buffer_->length = 0;
  }
  TextBuilder(const TextBuilder&) = delete;
  TextBuilder& operator=(const TextBuilder&) = delete;
  ~TextBuilder() {
    if (buffer_ != nullptr) Release(buffer_);
  }

  void Append(std::string_view piece) {
    if (piece.size() > buffer_->capacity - buffer_->length) {
      AppendText(buffer_, piece);
      return;
    }
    kel::CopyInSteps(buffer_->Data() + buffer_->length, piece.data(), piece.size());
    buffer_->length += static_cast<uint32_t>(piece.size());
  }
  void Append(char byte) { Append(std::string_view(&byte, 1)); }
  /// Hands the text over; the builder is of no further use.
  Text Finish() {
    StrBuf* buffer = std::exchange(buffer_, nullptr);
    buffer->Data()[buffer->length] = '\0';
    return Text(buffer);
  }

 private:
  StrBuf* buffer_;
};

/// An array on its way to the stack, with the type that it is pushed under.
class ArrayResult {
 public:
  /// An empty array of this array type.
  explicit ArrayResult(const TypeRef& type) : type_(type), data_(ArrayData::New(type->Element())) {}
  /// Takes over an array; null is an empty one.
  ArrayResult(const TypeRef& type, ArrayData* data) : type_(type), data_(data) {}
  ArrayResult(ArrayResult&& other) noexcept
      : type_(other.type_), data_(std::exchange(other.data_, nullptr)) {}
  ArrayResult& operator=(const ArrayResult&) = delete;
  ~ArrayResult() {
    if (data_ != nullptr) Release(data_);
  }
  const TypeDesc& Type() const { return *type_; }
  ArrayData* operator->() { return data_; }
  void AppendText(std::string_view text) {
    kel::CheckStop();
    Text element(text);
    data_->AppendOwned(element.TakeCell());
  }
  Cell TakeCell() {
    Cell cell = ZeroCell();
    cell.a = std::exchange(data_, nullptr);
    return cell;
  }

 private:
  TypeRef type_;
  ArrayData* data_;
};

namespace builtin {

inline Operand Read(const StackEntry& entry) {
  if (entry.kind != Kind::Any) [[likely]] {
    return {entry.kind, entry.cell};
  }
  Variable& variable = *entry.cell.v;
  return {KindOf(variable), *CellOf(variable)};
}

/// The arguments of a call on the stack, the first `count` entries below `top`.
struct StackArguments {
  Stack& stack;
  uint32_t count;

  uint32_t DepthOf(uint32_t at) const { return count - 1 - at; }
  Operand At(uint32_t at) const { return Read(stack.Peek(DepthOf(at))); }
  const TypeDesc* TypeAt(uint32_t at) const { return stack.Peek(DepthOf(at)).type; }
  Variable* VariableAt(uint32_t at) const {
    return stack.GetVariable(stack.GetSize() - 1 - DepthOf(at));
  }
};

/// Those of a call without it. They have the kinds that the body asks for.
struct DirectArguments {
  const Cell* cells;
  const Passed& passed;

  Operand At(uint32_t at) const { return Read({passed.arguments[at].kind, cells[at], nullptr}); }
  const TypeDesc* TypeAt(uint32_t at) const { return passed.arguments[at].type.Get(); }
  Variable* VariableAt(uint32_t at) const { return cells[at].v; }
};

template <class Arguments>
ArrayOperand GetArray(const Arguments& arguments, uint32_t at) {
  const Operand operand = arguments.At(at);
  if (operand.kind != Kind::Array) return {false, TypeDesc::Of(Kind::Array), nullptr};
  const TypeDesc* type = arguments.TypeAt(at);
  // A variable knows by itself.
  const bool isVariable = type == nullptr || type->GetKind() != Kind::Array;
  return {true, isVariable ? TypeOf(*arguments.VariableAt(at)) : TypeRef(type), operand.cell.a};
}

/// What a parameter of type T is called with without the stack.
template <class T>
constexpr Kind KindOfParameter() {
  if constexpr (std::is_same_v<T, Variable*>) {
    return Kind::Any;
  } else if constexpr (std::is_same_v<T, ArrayOperand> || std::is_same_v<T, Operand>) {
    return Kind::None;
  } else if constexpr (std::is_same_v<T, Handle>) {
    return Kind::Handle;
  } else if constexpr (std::is_same_v<T, std::string_view>) {
    return Kind::String;
  } else if constexpr (std::is_same_v<T, const ArrayData*>) {
    return Kind::Array;
  } else if constexpr (std::is_same_v<T, int32_t>) {
    return Kind::Int;
  } else if constexpr (std::is_same_v<T, bool>) {
    return Kind::Bool;
  } else if constexpr (std::is_same_v<T, char>) {
    return Kind::Char;
  } else if constexpr (std::is_same_v<T, float>) {
    return Kind::Float;
  } else {
    static_assert(std::is_same_v<T, double>, "no argument of this type");
    return Kind::Double;
  }
}

/// One argument: what it gives for a parameter of type T.
template <class T, class Arguments>
T Get(const Arguments& arguments, uint32_t at) {
  constexpr Kind kKind = KindOfParameter<T>();
  if constexpr (kKind == Kind::Any) {
    return arguments.VariableAt(at);
  } else if constexpr (std::is_same_v<T, ArrayOperand>) {
    return GetArray(arguments, at);
  } else if constexpr (kKind == Kind::None) {
    return arguments.At(at);
  } else {
    Operand operand = {kKind, ZeroCell()};
    if constexpr (std::is_same_v<Arguments, DirectArguments>) {
      operand.cell = arguments.cells[at];
    } else {
      operand = arguments.At(at);
    }
    const auto [kind, cell] = operand;
    if constexpr (kKind == Kind::Handle) {
      return Handle{kind == Kind::Handle ? HandleTable::FromPointer(cell.p) : 0};
    } else if constexpr (kKind == Kind::String) {
      return operand.AsText();
    } else if constexpr (kKind == Kind::Array) {
      return kind == Kind::Array ? cell.a : nullptr;
    } else if constexpr (kKind == Kind::Int) {
      return kind == Kind::Int ? cell.i : CellToInt(kind, cell);
    } else if constexpr (kKind == Kind::Bool) {
      return (kind == Kind::Bool ? cell.i : CellToBool(kind, cell)) != 0;
    } else if constexpr (kKind == Kind::Char) {
      return static_cast<char>(kind == Kind::Char ? cell.i : CellToChar(kind, cell));
    } else if constexpr (kKind == Kind::Float) {
      return kind == Kind::Float ? cell.f : CellToFloat(kind, cell);
    } else {
      return kind == Kind::Double ? cell.d : CellToDouble(kind, cell);
    }
  }
}

inline void Push(Stack& stack, int32_t value) { stack.PushCell(Kind::Int, ToCell(value)); }
inline void Push(Stack& stack, bool value) { stack.PushCell(Kind::Bool, ToCell(value)); }
inline void Push(Stack& stack, char value) { stack.PushCell(Kind::Char, ToCell(value)); }
inline void Push(Stack& stack, float value) { stack.PushFloat(value); }
inline void Push(Stack& stack, double value) { stack.PushDouble(value); }
inline void Push(Stack& stack, Text value) { stack.PushCell(Kind::String, value.TakeCell()); }
inline void Push(Stack& stack, ArrayResult value) {
  stack.PushTyped(value.Type(), value.TakeCell());
}
inline void Push(Stack& stack, const Handle& value) {
  stack.PushHandle(value.typeName, HandleTable::ToPointer(value.id));
}
inline void Push(Stack& stack, Variable* value) { stack.PushVariable(value); }

// What leaves a result behind in a call without the stack.
using tamber::ToCell;
inline Cell ToCell(Text value) { return value.TakeCell(); }
inline Cell ToCell(ArrayResult value) { return value.TakeCell(); }
inline Cell ToCell(const Handle& value) {
  Cell cell = ZeroCell();
  cell.p = HandleTable::ToPointer(value.id);
  return cell;
}
inline Cell ToCell(Variable* value) {
  Cell cell = ZeroCell();
  cell.v = value;
  return cell;
}

/// The kind that a body's result of type T has.
template <class T>
constexpr Kind KindOfResult() {
  if constexpr (std::is_same_v<T, Variable*>) {
    return Kind::Any;
  } else if constexpr (std::is_same_v<T, ArrayResult>) {
    return Kind::Array;
  } else if constexpr (std::is_same_v<T, Handle>) {
    return Kind::Handle;
  } else if constexpr (std::is_same_v<T, Text> || std::is_convertible_v<T, std::string_view>) {
    return Kind::String;
  } else {
    return KindOfParameter<T>();
  }
}

/// A result that may borrow from an argument becomes a text of its own while that is still there.
template <class T>
auto Own(T&& result) {
  if constexpr (std::is_convertible_v<T, std::string_view>) {
    return Text(std::string_view(result));
  } else {
    return std::forward<T>(result);
  }
}

template <auto Body, class Result, class... Args>
struct Plain {
  static constexpr uint32_t kCount = sizeof...(Args);
  static constexpr std::array<Kind, kCount> kParameters{KindOfParameter<Args>()...};
  static constexpr Kind kResult = KindOfResult<Result>();

  template <class Record, class Arguments>
  static auto Invoke(TamberContext&, Record&, const Arguments& arguments) {
    return InvokeWith(arguments, std::index_sequence_for<Args...>());
  }

 protected:
  template <class Arguments, size_t... At, class... Prefix>
  static auto InvokeWith(const Arguments& arguments, std::index_sequence<At...>,
                         Prefix&... prefix) {
    return Own(Body(prefix..., Get<Args>(arguments, static_cast<uint32_t>(At))...));
  }
};

/// Of a body that takes the call itself first.
template <auto Body, class Result, class... Args>
struct Plain<Body, Result, Call&, Args...> : Plain<Body, Result, Args...> {
  template <class Record, class Arguments>
  static auto Invoke(TamberContext& context, Record& record, const Arguments& arguments) {
    Call call(context);
    auto result = Plain<Body, Result, Args...>::InvokeWith(
        arguments, std::index_sequence_for<Args...>(), call);
    call.Report(record);
    return result;
  }
};

/// Arguments are read where they lie and dropped in one go once the body is done with them.
template <class Wrapped>
int32_t RunOnStack(FunctionCallInfo* info) {
  Stack& stack = *info->stack;
  if (stack.GetSize() < Wrapped::kCount) [[unlikely]] {
    info->errorCode = ERR_EXPRFUNCPARCOUNT;
    info->errorText.Clear();
    return 0;
  }
  const uint32_t base = stack.GetSize() - Wrapped::kCount;
  auto result = Wrapped::Invoke(*info->context, *info, StackArguments{stack, Wrapped::kCount});
  stack.CutTo(base);
  Push(stack, std::move(result));
  return 1;
}

inline Cell ToVariable(const TypeDesc& type, Cell cell) {
  OwnedCell value(type.GetKind(), cell);
  Variable* made = MakeVariable(TypeRef(&type), Name(), value.cell);
  value.Take();
  return ToCell(made);
}

template <class Wrapped>
Cell RunDirectly(TamberContext& context, void*, const Cell* arguments, const Passed& passed,
                 CallError& error) {
  auto result = Wrapped::Invoke(context, error, DirectArguments{arguments, passed});
  if constexpr (Wrapped::kResult == Kind::Array) {
    if (passed.wantsVariable) {
      const TypeRef type(&result.Type());
      return ToVariable(*type, result.TakeCell());
    }
  } else if constexpr (Wrapped::kResult == Kind::Handle) {
    if (passed.wantsVariable)
      return ToVariable(*TypeDesc::HandleOf(Name(result.typeName)), ToCell(result));
  }
  return ToCell(std::move(result));
}

template <auto Body, class Result, class... Args>
constexpr Implementation Make(Result (*)(Args...)) {
  using Wrapped = Plain<Body, Result, Args...>;
  return {RunOnStack<Wrapped>,
          DirectFunction{RunDirectly<Wrapped>, Wrapped::kParameters.data(), Wrapped::kResult}};
}

}  // namespace builtin

/// The implementation of a built-in whose work `Body` does.
template <auto Body>
inline constexpr Implementation Wrap = builtin::Make<Body>(Body);

}  // namespace tamber
