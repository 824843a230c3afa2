#pragma once

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
/// `Wrap` reads the arguments from the stack by the types of the body's parameters, calls the body,
/// takes the arguments off and pushes the result by its type. A body that can fail, that needs the
/// context or that can take long takes a `Call&` first; it may be left by any call of
/// kel::CheckStop.
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
/// | result | what is pushed |
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
  explicit Call(FunctionCallInfo& info) : info_(info) {}

  /// Reports a failure: below 20000 a run-time error beside the result, above it the run ends.
  void Fail(int32_t code, std::string_view text) {
    info_.errorCode = code;
    info_.errorText = KelString(text);
  }
  TamberContext& Context() const { return *info_.context; }
  FunctionCallInfo& Info() const { return info_; }

 private:
  FunctionCallInfo& info_;
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
    if (piece.empty()) return;
    std::memcpy(buffer_->Data() + buffer_->length, piece.data(), piece.size());
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
    data_->Append(element.TakeCell());
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

inline ArrayOperand ReadArray(const StackEntry& entry) {
  if (entry.kind == Kind::Array) return {true, TypeRef(entry.type), entry.cell.a};
  if (entry.kind == Kind::Any && KindOf(*entry.cell.v) == Kind::Array) {
    return {true, TypeOf(*entry.cell.v), CellOf(*entry.cell.v)->a};
  }
  return {false, TypeDesc::Of(Kind::Array), nullptr};
}

/// One argument: what the entry `depth` below the top gives for a parameter of type T.
template <class T>
T Get(Stack& stack, uint32_t depth) {
  if constexpr (std::is_same_v<T, Variable*>) {
    return stack.GetVariable(stack.GetSize() - 1 - depth);
  } else if constexpr (std::is_same_v<T, ArrayOperand>) {
    return ReadArray(stack.Peek(depth));
  } else {
    const Operand operand = Read(stack.Peek(depth));
    if constexpr (std::is_same_v<T, Operand>) {
      return operand;
    } else if constexpr (std::is_same_v<T, Handle>) {
      return Handle{operand.kind == Kind::Handle ? HandleTable::FromPointer(operand.cell.p) : 0};
    } else if constexpr (std::is_same_v<T, std::string_view>) {
      return operand.AsText();
    } else if constexpr (std::is_same_v<T, const ArrayData*>) {
      return operand.kind == Kind::Array ? operand.cell.a : nullptr;
    } else if constexpr (std::is_same_v<T, int32_t>) {
      return operand.kind == Kind::Int ? operand.cell.i : CellToInt(operand.kind, operand.cell);
    } else if constexpr (std::is_same_v<T, bool>) {
      return CellToBool(operand.kind, operand.cell) != 0;
    } else if constexpr (std::is_same_v<T, char>) {
      return static_cast<char>(CellToChar(operand.kind, operand.cell));
    } else if constexpr (std::is_same_v<T, float>) {
      return CellToFloat(operand.kind, operand.cell);
    } else {
      static_assert(std::is_same_v<T, double>, "no argument of this type");
      return CellToDouble(operand.kind, operand.cell);
    }
  }
}

inline void Push(Stack& stack, int32_t value) { stack.PushCell(Kind::Int, IntCell(value)); }
inline void Push(Stack& stack, bool value) { stack.PushCell(Kind::Bool, IntCell(value ? 1 : 0)); }
inline void Push(Stack& stack, char value) {
  stack.PushCell(Kind::Char, IntCell(static_cast<signed char>(value)));
}
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

/// A result that may borrow from an argument becomes a text of its own while that is still there.
template <class T>
auto Own(T&& result) {
  if constexpr (std::is_convertible_v<T, std::string_view>) {
    return Text(std::string_view(result));
  } else {
    return std::forward<T>(result);
  }
}

/// Arguments are read where they lie and dropped in one go once the body is done with them.
template <auto Body, class... Prefix, class... Args, size_t... At>
int32_t Run(FunctionCallInfo& info, std::index_sequence<At...>, std::type_identity<void(Args...)>,
            Prefix&... prefix) {
  constexpr uint32_t kCount = sizeof...(Args);
  Stack& stack = *info.stack;
  if (stack.GetSize() < kCount) [[unlikely]] {
    Call(info).Fail(ERR_EXPRFUNCPARCOUNT, {});
    return 0;
  }
  const uint32_t base = stack.GetSize() - kCount;
  auto result = Own(Body(prefix..., Get<Args>(stack, static_cast<uint32_t>(kCount - 1 - At))...));
  stack.CutTo(base);
  Push(stack, std::move(result));
  return 1;
}

template <auto Body, class Result, class... Args>
int32_t Dispatch(FunctionCallInfo& info, Result (*)(Args...)) {
  return Run<Body>(info, std::index_sequence_for<Args...>(), std::type_identity<void(Args...)>());
}

template <auto Body, class Result, class... Args>
int32_t Dispatch(FunctionCallInfo& info, Result (*)(Call&, Args...)) {
  Call call(info);
  return Run<Body>(info, std::index_sequence_for<Args...>(), std::type_identity<void(Args...)>(),
                   call);
}

}  // namespace builtin

/// The implementation of a built-in whose work `Body` does.
template <auto Body>
int32_t Wrap(FunctionCallInfo* info) {
  return builtin::Dispatch<Body>(*info, Body);
}

}  // namespace tamber
