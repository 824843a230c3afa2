#pragma once

#include <concepts>
#include <cstdint>

#include "kel/export.h"

class Variable;

namespace tamber {

struct StrBuf;
class ArrayData;
class StructData;

/// What a value is, one step finer than `Variable::enum_TypeId`: it distinguishes strings from
/// encrypted strings and has a kind for "known only when it runs".
enum class Kind : uint8_t {
  None,     ///< no value: a procedure without a result
  Bool,     ///< Cell::i is 0 or 1
  Char,     ///< Cell::i is -128..127
  Int,      ///< Cell::i
  Float,    ///< Cell::f
  Double,   ///< Cell::d
  String,   ///< Cell::s, one reference; null is the empty string
  Handle,   ///< Cell::p
  Struct,   ///< Cell::st, one reference; never null
  Array,    ///< Cell::a, one reference; null is an empty array
  EString,  ///< Cell::v, a VarEString, one holder
  Any,      ///< Cell::v, any variable, one holder (the elements of a generic array)
};

/// Eight bytes that hold a value whose Kind somebody else knows: a register of a running procedure,
/// a member of a structure, an element of an array, the value of a variable.
union Cell {
  uint64_t bits;
  int32_t i;
  float f;
  double d;
  void* p;
  StrBuf* s;
  ArrayData* a;
  StructData* st;
  Variable* v;
};

inline Cell ZeroCell() {
  Cell cell;
  cell.bits = 0;
  return cell;
}
inline Cell IntCell(int32_t value) {
  Cell cell = ZeroCell();
  cell.i = value;
  return cell;
}

/// The cells of the scalars. A pointer is no `bool`.
template <std::same_as<bool> T>
Cell ToCell(T value) {
  return IntCell(value ? 1 : 0);
}
inline Cell ToCell(char value) { return IntCell(static_cast<signed char>(value)); }
inline Cell ToCell(int32_t value) { return IntCell(value); }
inline Cell ToCell(float value) {
  Cell cell = ZeroCell();
  cell.f = value;
  return cell;
}
inline Cell ToCell(double value) {
  Cell cell = ZeroCell();
  cell.d = value;
  return cell;
}

/// True for the kinds whose cell owns a reference that must be released.
constexpr bool IsManaged(Kind kind) {
  return kind == Kind::String || kind == Kind::Struct || kind == Kind::Array ||
         kind == Kind::EString || kind == Kind::Any;
}
constexpr bool IsNumeric(Kind kind) { return kind >= Kind::Bool && kind <= Kind::Double; }

/// Header of the counted buffers behind String, Array and Struct cells. Counts are not atomic: a
/// value belongs to one context, and so to one thread at a time. A count below zero never moves:
/// the object lives as long as the process and may be read by every thread.
struct RefObject {
  enum class Type : uint8_t { String, Array, Struct };
  int32_t refs;
  Type type;
  uint8_t flags = 0;

  explicit RefObject(Type objectType) : refs(1), type(objectType) {}
  bool IsShared() const { return refs != 1; }
};

TAMBER_API void DestroyObject(RefObject* object);

inline void Retain(RefObject* object) {
  if (object->refs > 0) ++object->refs;
}
inline void Release(RefObject* object) {
  if (object->refs > 0 && --object->refs == 0) DestroyObject(object);
}

}  // namespace tamber
