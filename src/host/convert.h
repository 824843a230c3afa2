#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "host/elements.h"
#include "kel/export.h"
#include "kel/kelstring.h"
#include "values/errcodes.h"
#include "values/typedesc.h"
#include "values/variable.h"

/// \file
/// C++ values that are more than one script value: vectors, optional values and structures.
///
///     struct Request { std::string path; int32_t hits; std::vector<double> times; };
///     TAMBER_STRUCT(Request, path, hits, times)
///
/// From then on a `Request` can be an argument and a result of `Call` and of registered functions,
/// a member of other structures, and an element of vectors. Scripts see a structure with that name
/// and these members, which they declare themselves, in this order.
///
/// | C++ | script |
/// |---|---|
/// | `std::vector<T>` | an array |
/// | `std::optional<T>` | an array of no or one element |
/// | what TAMBER_STRUCT describes | a structure, member by member, by their names |
namespace tamber {

struct VariableDeleter {
  void operator()(Variable* variable) const { Variable::Delete(variable); }
};
/// One holder of a variable.
using VariablePtr = std::unique_ptr<Variable, VariableDeleter>;

/// Thrown by a registered function to raise one of the errors of the language: below 20000 the
/// script may handle it, from 20000 up it ends the run.
class ScriptError : public std::runtime_error {
 public:
  ScriptError(int32_t code, const std::string& text) : std::runtime_error(text), code_(code) {}
  int32_t Code() const { return code_; }

 private:
  int32_t code_;
};

namespace host {

template <class T>
constexpr bool kIsWide = std::is_same_v<T, long> || std::is_same_v<T, long long>;

/// Numbers that arrays keep as C++ does.
template <class T>
constexpr bool kIsPlainNumber =
    std::is_same_v<T, int32_t> || std::is_same_v<T, float> || std::is_same_v<T, double>;

/// The integer as scripts have it; throws ScriptError 113 when it does not fit.
TAMBER_API int32_t Narrow(int64_t value);

TAMBER_API VariablePtr NewNumber(Kind kind, double real, int32_t integer);
TAMBER_API VariablePtr NewString(std::string_view text);
/// An empty array of such elements; they are copied when they are added.
TAMBER_API VariablePtr NewArray(const Variable& element);
TAMBER_API void AddElement(Variable& array, const Variable& element);
TAMBER_API VariablePtr NewStruct(std::string_view name);
TAMBER_API void AddMember(Variable& structure, std::string_view name, VariablePtr value);

// These throw ScriptError 20504 when a value is not what is wanted.
TAMBER_API double NumberIn(const Variable& value);
TAMBER_API int32_t IntegerIn(const Variable& value);
TAMBER_API std::string_view StringIn(const Variable& value);
TAMBER_API uint32_t CountIn(const Variable& array);
/// A copy of an element, from 1.
TAMBER_API VariablePtr ElementIn(const Variable& array, uint32_t index);
/// A member, borrowed.
TAMBER_API const Variable& MemberIn(const Variable& structure, std::string_view name);
[[noreturn]] TAMBER_API void RefuseCount(uint32_t count);

/// What TAMBER_STRUCT says of a structure.
template <class T, class... M>
struct Members {
  std::string_view type;
  std::array<std::string_view, sizeof...(M)> names;
  std::tuple<M T::*...> members;
};

template <class T>
concept Described = requires {
  TamberMembers(static_cast<const T*>(nullptr));
};

template <class T>
struct IsVector : std::false_type {};
template <class T>
struct IsVector<std::vector<T>> : std::true_type {};
template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

/// What travels as a variable that is made for it.
template <class T>
concept Composed = IsVector<T>::value || IsOptional<T>::value || Described<T>;

template <class T>
VariablePtr ToScript(const T& value);
template <class T>
T FromScript(const Variable& value);

template <class T>
VariablePtr ToStruct(const T& value) {
  const auto description = TamberMembers(static_cast<const T*>(nullptr));
  VariablePtr made = NewStruct(description.type);
  std::apply(
      [&](auto... member) {
        size_t at = 0;
        (AddMember(*made, description.names[at++], ToScript(value.*member)), ...);
      },
      description.members);
  return made;
}

template <class T>
T FromStruct(const Variable& value) {
  const auto description = TamberMembers(static_cast<const T*>(nullptr));
  T made{};
  std::apply(
      [&](auto... member) {
        size_t at = 0;
        ((made.*member = FromScript<std::remove_reference_t<decltype(made.*member)>>(
              MemberIn(value, description.names[at++]))),
         ...);
      },
      description.members);
  return made;
}

template <class T>
VariablePtr ToScript(const T& value) {
  if constexpr (std::is_same_v<T, bool>) {
    return NewNumber(Kind::Bool, 0, value ? 1 : 0);
  } else if constexpr (std::is_same_v<T, char>) {
    return NewNumber(Kind::Char, 0, static_cast<signed char>(value));
  } else if constexpr (std::is_same_v<T, int32_t> || kIsWide<T>) {
    return NewNumber(Kind::Int, 0, Narrow(value));
  } else if constexpr (std::is_same_v<T, float>) {
    return NewNumber(Kind::Float, static_cast<double>(value), 0);
  } else if constexpr (std::is_same_v<T, double>) {
    return NewNumber(Kind::Double, value, 0);
  } else if constexpr (IsVector<T>::value || IsOptional<T>::value) {
    using Element = typename T::value_type;
    VariablePtr made = NewArray(*ToScript(Element{}));
    if constexpr (IsVector<T>::value) {
      for (const Element& element : value) AddElement(*made, *ToScript(element));
    } else {
      if (value) AddElement(*made, *ToScript(*value));
    }
    return made;
  } else if constexpr (Described<T>) {
    return ToStruct(value);
  } else {
    return NewString(kel::ViewOf(value));
  }
}

template <class T>
T FromScript(const Variable& value) {
  if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>) {
    return static_cast<T>(NumberIn(value));
  } else if constexpr (std::is_same_v<T, bool>) {
    return NumberIn(value) != 0;
  } else if constexpr (std::is_integral_v<T>) {
    return static_cast<T>(IntegerIn(value));
  } else if constexpr (IsVector<T>::value) {
    T made;
    const uint32_t count = CountIn(value);
    if constexpr (kIsPlainNumber<typename T::value_type>) {
      made.resize(count);
      if (CopyElements(value, 1, std::span(made)) == count) return made;
      made.clear();  // elements of any type: each is looked at
    }
    made.reserve(count);
    for (uint32_t i = 1; i <= count; ++i)
      made.push_back(FromScript<typename T::value_type>(*ElementIn(value, i)));
    return made;
  } else if constexpr (IsOptional<T>::value) {
    const uint32_t count = CountIn(value);
    if (count > 1) RefuseCount(count);
    if (count == 0) return std::nullopt;
    return FromScript<typename T::value_type>(*ElementIn(value, 1));
  } else if constexpr (Described<T>) {
    return FromStruct<T>(value);
  } else {
    return T(StringIn(value));
  }
}

/// The next of the names that TAMBER_STRUCT has in one string.
constexpr std::string_view TakeName(std::string_view& names) {
  const size_t end = names.find(',');
  std::string_view name = names.substr(0, end);
  names.remove_prefix(end == std::string_view::npos ? names.size() : end + 1);
  while (name.starts_with(' ')) name.remove_prefix(1);
  while (name.ends_with(' ')) name.remove_suffix(1);
  return name;
}

template <class T, class... M>
constexpr Members<T, M...> MembersOf(std::string_view type, std::string_view names,
                                     M T::*... members) {
  Members<T, M...> made{type, {}, {members...}};
  for (std::string_view& name : made.names) name = TakeName(names);
  return made;
}

}  // namespace host
}  // namespace tamber

// TAMBER_EACH(macro, type, a, b, ...) is macro(type, a), macro(type, b), ...
#define TAMBER_PARENS ()
#define TAMBER_EXPAND(...) \
  TAMBER_EXPAND3(TAMBER_EXPAND3(TAMBER_EXPAND3(TAMBER_EXPAND3(__VA_ARGS__))))
#define TAMBER_EXPAND3(...) \
  TAMBER_EXPAND2(TAMBER_EXPAND2(TAMBER_EXPAND2(TAMBER_EXPAND2(__VA_ARGS__))))
#define TAMBER_EXPAND2(...) \
  TAMBER_EXPAND1(TAMBER_EXPAND1(TAMBER_EXPAND1(TAMBER_EXPAND1(__VA_ARGS__))))
#define TAMBER_EXPAND1(...) __VA_ARGS__
#define TAMBER_EACH(macro, type, ...) \
  __VA_OPT__(TAMBER_EXPAND(TAMBER_EACH_NEXT(macro, type, __VA_ARGS__)))
#define TAMBER_EACH_NEXT(macro, type, member, ...) \
  macro(type, member) __VA_OPT__(, TAMBER_EACH_AGAIN TAMBER_PARENS(macro, type, __VA_ARGS__))
#define TAMBER_EACH_AGAIN() TAMBER_EACH_NEXT
#define TAMBER_MEMBER(type, member) &type::member

/// Describes a structure to scripts: its name and up to 60 of its public members. Belongs in the
/// namespace of the structure, which is default-constructible. Members may be of every type that
/// `Call` takes by value, and of those above.
#define TAMBER_STRUCT(type, ...)                                                         \
  [[maybe_unused]] constexpr auto TamberMembers(const type*) {                           \
    return tamber::host::MembersOf<type>(#type, #__VA_ARGS__,                            \
                                         TAMBER_EACH(TAMBER_MEMBER, type, __VA_ARGS__)); \
  }
