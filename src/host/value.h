#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "engine/stack.h"
#include "host/convert.h"
#include "kel/kelstring.h"
#include "values/strbuf.h"
#include "values/variable.h"

/// How C++ values and script values are converted in calls between hosts and scripts.
///
/// | C++ | script |
/// |---|---|
/// | `bool` `char` `int32_t` `float` `double` | `bool` `char` `int` `float` `double` |
/// | `int64_t` | `int`; what does not fit is error 113 |
/// | `std::string_view` `std::string` `KelString` `const char*` | `string`, `estring` |
/// | `std::vector`, `std::optional`, described structures (host/convert.h) | arrays, structures |
/// | `Variable*` as an argument (borrowed), `VariablePtr` as a result (owned) | anything |
///
/// A null pointer as a result is the empty value of the type that the prototype names.
/// A `std::string_view` that a script hands to a C++ function is good until that function returns.
namespace tamber {

namespace host {

/// The kind of script value that a C++ type stands for; Any for variables, None for no value.
template <class T>
constexpr Kind KindFor() {
  using V = std::remove_cvref_t<T>;
  if constexpr (std::is_void_v<V>) {
    return Kind::None;
  } else if constexpr (std::is_same_v<V, bool>) {
    return Kind::Bool;
  } else if constexpr (std::is_same_v<V, char>) {
    return Kind::Char;
  } else if constexpr (std::is_same_v<V, int32_t> || kIsWide<V>) {
    return Kind::Int;
  } else if constexpr (std::is_same_v<V, float>) {
    return Kind::Float;
  } else if constexpr (std::is_same_v<V, double>) {
    return Kind::Double;
  } else if constexpr (std::is_convertible_v<const V&, std::string_view>) {
    return Kind::String;
  } else {
    return Kind::Any;
  }
}

template <class T>
constexpr bool kIsVariable = std::is_same_v<T, Variable*> || std::is_same_v<T, const Variable*>;

/// What a host may hand to a script.
template <class T>
concept Argument = KindFor<T>()
!= Kind::None &&
    (KindFor<T>() != Kind::Any || kIsVariable<std::decay_t<T>> || Composed<std::decay_t<T>>);
/// What a host may take from a script: nothing, a scalar, a string of its own, a variable.
template <class T>
concept Taken = !std::is_reference_v<T> &&
                (KindFor<T>() != Kind::Any || std::is_same_v<T, VariablePtr> ||
                 Composed<T>)&&(KindFor<T>() != Kind::String || std::is_same_v<T, std::string> ||
                                std::is_same_v<T, KelString>);
/// A value that a C++ function takes by value or by reference to const.
template <class T>
concept ReceivedByValue = (!std::is_reference_v<T> ||
                           std::is_const_v<std::remove_reference_t<T>>)&&!std::is_pointer_v<T> &&
                          KindFor<T>() != Kind::None && (KindFor<T>() != Kind::Any) &&
                          (KindFor<T>() != Kind::String ||
                           std::is_same_v<std::remove_cvref_t<T>, std::string_view> ||
                           std::is_same_v<std::remove_cvref_t<T>, std::string> ||
                           std::is_same_v<std::remove_cvref_t<T>, KelString>);
/// What a C++ function may take from a script that calls it: as above, or a borrowed string or
/// variable, all by value or by reference to const.
template <class T>
concept Received = kIsVariable<T> || ReceivedByValue<T> ||
    (Composed<std::remove_cvref_t<T>> &&
     (!std::is_reference_v<T> || std::is_const_v<std::remove_reference_t<T>>));

inline void Push(Stack& stack, bool value) { stack.PushCell(Kind::Bool, ToCell(value)); }
inline void Push(Stack& stack, char value) { stack.PushCell(Kind::Char, ToCell(value)); }
inline void Push(Stack& stack, int32_t value) { stack.PushCell(Kind::Int, ToCell(value)); }
inline void Push(Stack& stack, long value) { Push(stack, Narrow(value)); }
inline void Push(Stack& stack, long long value) { Push(stack, Narrow(value)); }
inline void Push(Stack& stack, float value) { stack.PushCell(Kind::Float, ToCell(value)); }
inline void Push(Stack& stack, double value) { stack.PushCell(Kind::Double, ToCell(value)); }
inline void Push(Stack& stack, const KelString& text) { stack.PushString(text); }
inline void Push(Stack& stack, std::string text) { stack.PushString(KelString(std::move(text))); }
inline void Push(Stack& stack, std::string_view text) {
  // To the stack a length of 0 means "up to the NUL", which a view need not have.
  if (text.empty()) text = "";
  stack.PushString(text.data(), static_cast<uint32_t>(text.size()));
}
inline void Push(Stack& stack, const char* text) { stack.PushString(text, 0); }
inline void Push(Stack& stack, VariablePtr value) { stack.PushVariable(value.release()); }
/// The variable stays the caller's; the stack gets a holder of its own. A null pointer is an
/// argument that no parameter takes.
inline void Push(Stack& stack, const Variable* value) {
  if (value != nullptr)
    stack.PushVariable(const_cast<Variable*>(value)->Duplicate());
  else
    stack.PushCell(Kind::None, ZeroCell());
}
inline void Push(Stack& stack, Variable* value) {
  Push(stack, static_cast<const Variable*>(value));
}

template <Composed T>
void Push(Stack& stack, const T& value) {
  Push(stack, ToScript(value));
}

/// An argument of a call without the stack as a C++ value; strings and variables are borrowed.
template <class T>
auto Read(const Cell& cell) {
  using V = std::remove_cvref_t<T>;
  constexpr Kind kKind = KindFor<V>();
  if constexpr (Composed<V>) {
    return FromScript<V>(*cell.v);
  } else if constexpr (kKind == Kind::Any) {
    return cell.v;
  } else if constexpr (kKind == Kind::String) {
    return V(TextOf(cell.s));
  } else if constexpr (kKind == Kind::Bool) {
    return cell.i != 0;
  } else if constexpr (kKind == Kind::Char) {
    return static_cast<char>(cell.i);
  } else if constexpr (kKind == Kind::Int) {
    return cell.i;
  } else if constexpr (kKind == Kind::Float) {
    return cell.f;
  } else {
    return cell.d;
  }
}

using tamber::ToCell;
inline Cell ToCell(long value) { return ToCell(Narrow(value)); }
inline Cell ToCell(long long value) { return ToCell(Narrow(value)); }
inline Cell ToCell(std::string_view text) {
  Cell cell = ZeroCell();
  if (!text.empty()) cell.s = StrBuf::New(text);
  return cell;
}
inline Cell ToCell(const char* text) { return ToCell(kel::ViewOf(text)); }
inline Cell ToCell(VariablePtr value) {
  Cell cell = ZeroCell();
  cell.v = value.release();
  return cell;
}
template <Composed T>
Cell ToCell(const T& value) {
  return ToCell(ToScript(value));
}

/// The entry at `index` from the bottom as a C++ value; strings and variables are borrowed.
template <class T>
auto Read(Stack& stack, uint32_t index) {
  using V = std::remove_cvref_t<T>;
  constexpr Kind kKind = KindFor<V>();
  if constexpr (Composed<V>) {
    return FromScript<V>(*stack.GetVariable(index));
  } else if constexpr (kKind == Kind::Any) {
    return stack.GetVariable(index);
  } else {
    const StackEntry& entry = stack.Peek(stack.GetSize() - 1 - index);
    const bool direct = entry.kind == kKind;
    if constexpr (kKind == Kind::String) {
      if (direct) [[likely]] {
        return V(TextOf(entry.cell.s));
      }
      Variable* variable = stack.GetVariable(index);
      const char* text = variable->GetStringValue();
      return V(std::string_view(text, variable->GetLength()));
    } else if constexpr (kKind == Kind::Bool) {
      return direct ? entry.cell.i != 0 : stack.GetVariable(index)->GetBoolValue() != 0;
    } else if constexpr (kKind == Kind::Char) {
      return direct ? static_cast<char>(entry.cell.i) : stack.GetVariable(index)->GetCharValue();
    } else if constexpr (kKind == Kind::Int) {
      return direct ? entry.cell.i : stack.GetVariable(index)->GetIntegerValue();
    } else if constexpr (kKind == Kind::Float) {
      return direct ? entry.cell.f : stack.GetVariable(index)->GetFloatValue();
    } else {
      return direct ? entry.cell.d : stack.GetVariable(index)->GetDoubleValue();
    }
  }
}

}  // namespace host
}  // namespace tamber
