#include "host/convert.h"

#include <limits>

#include "kel/kelstring.h"
#include "values/cellops.h"
#include "values/store.h"
#include "values/varstring.h"
#include "values/varstruct.h"

namespace tamber::host {
namespace {

[[noreturn]] void Refuse(const Variable& value, const char* wanted) {
  throw ScriptError(ERR_EXPRPARMMATCH, TypeOf(value)->Word() + " given, wanted " + wanted);
}

void NeedNumber(const Variable& value) {
  if (!IsNumeric(KindOf(value))) Refuse(value, "a number");
}

}  // namespace

int32_t Narrow(int64_t value) {
  const bool fits =
      value >= std::numeric_limits<int32_t>::min() && value <= std::numeric_limits<int32_t>::max();
  if (!fits) throw ScriptError(ERR_VALUEOVERFLOW, std::to_string(value));
  return static_cast<int32_t>(value);
}

VariablePtr NewNumber(Kind kind, double real, int32_t integer) {
  const Cell cell = kind == Kind::Double  ? ToCell(real)
                    : kind == Kind::Float ? ToCell(static_cast<float>(real))
                                          : IntCell(integer);
  return VariablePtr(MakeVariable(TypeDesc::Of(kind), Name(), cell));
}

VariablePtr NewString(std::string_view text) {
  VariablePtr made(MakeVariable(TypeDesc::Of(Kind::String), Name()));
  made->SetStringValue(KelString(text));
  return made;
}

VariablePtr NewArray(const Variable& element) {
  return VariablePtr(MakeVariable(TypeDesc::ArrayOf(TypeOf(element)), Name()));
}

void AddElement(Variable& array, const Variable& element) {
  Variable& source = const_cast<Variable&>(element);  // read only
  if (Append(PlaceOf(array), *TypeOf(element), *CellOf(source)) == Stored::NoMemory)
    throw std::bad_alloc();
}

VariablePtr NewStruct(std::string_view name) {
  VariablePtr made(new VarStruct(KelString(), 0));
  made->SetStructName(KelString(name));
  return made;
}

void AddMember(Variable& structure, std::string_view name, VariablePtr value) {
  value->SetVarName(KelString(name));
  if (structure.AddStructElement(value.get(), 1) != 0) static_cast<void>(value.release());
}

double NumberIn(const Variable& value) {
  NeedNumber(value);
  return value.GetDoubleValue();
}

int32_t IntegerIn(const Variable& value) {
  NeedNumber(value);
  return value.GetIntegerValue();
}

std::string_view StringIn(const Variable& value) {
  const Kind kind = KindOf(value);
  if (kind != Kind::String && kind != Kind::EString) Refuse(value, "a string");
  return {value.GetStringValue(), const_cast<Variable&>(value).GetLength()};
}

uint32_t CountIn(const Variable& array) {
  if (array.IsArray() == 0) Refuse(array, "an array");
  return array.GetElementCount();
}

VariablePtr ElementIn(const Variable& array, uint32_t index) {
  Variable* element = nullptr;
  const Stored stored =
      CopyElement(CellOf(const_cast<Variable&>(array))->a, static_cast<int32_t>(index), element);
  if (stored != Stored::Done) throw std::bad_alloc();
  return VariablePtr(element);
}

const Variable& MemberIn(const Variable& structure, std::string_view name) {
  if (structure.IsStruct() == 0) Refuse(structure, "a structure");
  const Variable* member = structure.GetStructElement(KelString(name));
  if (member == nullptr)
    throw ScriptError(ERR_EXPRPARMMATCH, std::string(structure.GetStructName().View()) +
                                             " has no member " + std::string(name));
  return *member;
}

void RefuseCount(uint32_t count) {
  throw ScriptError(ERR_EXPRPARMMATCH,
                    std::to_string(count) + " elements given, wanted one at the most");
}

}  // namespace tamber::host
