// Global variables, and parts of them, for hosts in C.

#include <vector>

#include "host/c_context.h"
#include "machine/machine.h"
#include "values/arraydata.h"
#include "values/cellops.h"

namespace tamber::host {
namespace {

/// The variable that a path begins with; what is left of the path leads into it.
Variable* TakeVariable(CContext& context, std::string_view& path, uint32_t scopes) {
  const std::string_view name = NameIn(path);
  path.remove_prefix(name.size());
  return context.context.GetVariable(KelString(name), scopes);
}

/// Finds a value for one of the functions that read.
template <class Read>
int WithValue(tamber_context* handle, const char* name, Read&& read) {
  return WithContext(handle, [&](CContext& context) -> int {
    if (name == nullptr) return TAMBER_BAD_ARGUMENT;
    std::string_view path = name;
    Variable* whole = TakeVariable(context, path, VARLIST_GLOBAL | VARLIST_CONSTANT);
    return ReadPart(whole, path, read);
  });
}

/// Changes a global, or a part of it.
template <class Change>
int WithGlobal(tamber_context* handle, const char* name, Change&& change) {
  return WithContext(handle, [&](CContext& context) -> int {
    if (name == nullptr) return TAMBER_BAD_ARGUMENT;
    std::string_view path = name;
    Variable* whole = TakeVariable(context, path, VARLIST_GLOBAL);
    return whole != nullptr ? StatusOf(change(*whole, path)) : static_cast<int>(TAMBER_NOT_FOUND);
  });
}

/// Assigns as a script would.
int SetValue(tamber_context* handle, const char* name, VariablePtr value) {
  return WithGlobal(handle, name, [&](Variable& whole, std::string_view path) {
    return StorePart(whole, path, *TypeOf(*value), *CellOf(*value));
  });
}

/// The numbers of an array of exactly this type, borrowed. Objects that its elements have had are
/// taken back first: C holds none, and code that runs is let alone.
template <class Number>
int BorrowNumbers(tamber_context* handle, const char* name, const Number** values, uint32_t* count,
                  Kind kind) {
  if (values == nullptr || count == nullptr) return TAMBER_BAD_ARGUMENT;
  return WithContext(handle, [&](CContext& context) -> int {
    if (name == nullptr) return TAMBER_BAD_ARGUMENT;
    std::string_view path = name;
    Variable* whole = TakeVariable(context, path, VARLIST_GLOBAL | VARLIST_CONSTANT);
    const bool runs = context.context.GetMachine().IsRunning();
    return ReadPart(whole, path, [&](const PartView& part) -> int {
      const bool fits =
          part.type->IsArray() && part.type->Element() && part.type->Element()->GetKind() == kind;
      if (!fits) return TAMBER_WRONG_TYPE;
      ArrayData* const array = part.cell.a;
      if (array != nullptr && !runs) array->SweepBoxes();
      if (array != nullptr && (array->HasBoxes() || array->StorageKind() != kind))
        return TAMBER_WRONG_TYPE;
      *values = array != nullptr ? array->Data<Number>() : nullptr;
      *count = array != nullptr ? array->Count() : 0;
      return TAMBER_OK;
    });
  });
}

/// Makes an array hold these numbers; what it cannot take leaves it as it was.
template <class Number>
int SetNumbers(tamber_context* handle, const char* name, const Number* values, uint32_t count,
               Kind kind) {
  if (values == nullptr && count > 0) return TAMBER_BAD_ARGUMENT;
  return WithGlobal(handle, name, [&](Variable& whole, std::string_view path) {
    const TypeRef element = TypeDesc::Of(kind);
    const TypeRef type = TypeDesc::ArrayOf(element);
    const VariablePtr made(MakeVariable(type, Name()));
    for (uint32_t i = 0; i < count; ++i)
      if (Append(PlaceOf(*made), *element, ToCell(values[i])) != Stored::Done)
        return PathEnd::NoMemory;
    return StorePart(whole, path, *type, *CellOf(*made));
  });
}

}  // namespace

namespace {

/// Copies the numbers of an array: as many as there is room for. `count` gets how many there are.
template <class Number>
int ReadNumbers(const PartView& part, Number* values, uint32_t room, uint32_t* count,
                Number (*numberOf)(Kind, Cell)) {
  if (count == nullptr || (values == nullptr && room > 0)) return TAMBER_BAD_ARGUMENT;
  if (!part.type->IsArray()) return TAMBER_WRONG_TYPE;
  const ArrayData* const array = part.cell.a;
  const uint32_t size = array != nullptr ? array->Count() : 0;
  if (size > 0 && !IsNumeric(array->StorageKind())) return TAMBER_WRONG_TYPE;
  for (uint32_t at = 0; at < size && at < room; ++at)
    values[at] = numberOf(array->StorageKind(), array->Peek(at));
  *count = size;
  return TAMBER_OK;
}

}  // namespace

int ReadInts(const PartView& part, int32_t* values, uint32_t room, uint32_t* count) {
  return ReadNumbers(part, values, room, count, CellToInt);
}
int ReadDoubles(const PartView& part, double* values, uint32_t room, uint32_t* count) {
  return ReadNumbers(part, values, room, count, CellToDouble);
}

int ReadSize(const PartView& part, uint32_t* count) {
  if (count == nullptr) return TAMBER_BAD_ARGUMENT;
  switch (TypeCode(part)) {
    case TAMBER_ARRAY:
      *count = part.cell.a != nullptr ? part.cell.a->Count() : 0;
      return TAMBER_OK;
    case TAMBER_STRUCT:
      *count = static_cast<uint32_t>(part.type->Layout()->Members().size());
      return TAMBER_OK;
    default:
      return TAMBER_WRONG_TYPE;
  }
}

}  // namespace tamber::host

using namespace tamber::host;

int tamber_get_type(tamber_context* context, const char* name, int* type) {
  return WithValue(context, name, [&](const PartView& part) -> int {
    if (type == nullptr) return TAMBER_BAD_ARGUMENT;
    *type = TypeCode(part);
    return TAMBER_OK;
  });
}

int tamber_get_size(tamber_context* context, const char* name, uint32_t* count) {
  return WithValue(context, name, [&](const PartView& part) { return ReadSize(part, count); });
}

int tamber_get_member(tamber_context* context, const char* name, uint32_t position,
                      const char** member) {
  return WithValue(context, name, [&](const PartView& part) -> int {
    if (member == nullptr) return TAMBER_BAD_ARGUMENT;
    if (TypeCode(part) != TAMBER_STRUCT) return TAMBER_WRONG_TYPE;
    const auto& members = part.type->Layout()->Members();
    if (position >= members.size()) return TAMBER_NOT_FOUND;
    *member = members[position].name.View().data();
    return TAMBER_OK;
  });
}

int tamber_get_int(tamber_context* context, const char* name, int32_t* value) {
  return WithValue(context, name, [&](const PartView& part) { return ReadInt(part, value); });
}

int tamber_get_double(tamber_context* context, const char* name, double* value) {
  return WithValue(context, name, [&](const PartView& part) { return ReadDouble(part, value); });
}

int tamber_get_text(tamber_context* context, const char* name, const char** text, size_t* length) {
  return WithValue(context, name,
                   [&](const PartView& part) { return ReadText(part, text, length); });
}

int tamber_get_ints(tamber_context* context, const char* name, int32_t* values, uint32_t room,
                    uint32_t* count) {
  return WithValue(context, name,
                   [&](const PartView& part) { return ReadInts(part, values, room, count); });
}

int tamber_get_doubles(tamber_context* context, const char* name, double* values, uint32_t room,
                       uint32_t* count) {
  return WithValue(context, name,
                   [&](const PartView& part) { return ReadDoubles(part, values, room, count); });
}

int tamber_borrow_ints(tamber_context* context, const char* name, const int32_t** values,
                       uint32_t* count) {
  return BorrowNumbers(context, name, values, count, tamber::Kind::Int);
}

int tamber_borrow_doubles(tamber_context* context, const char* name, const double** values,
                          uint32_t* count) {
  return BorrowNumbers(context, name, values, count, tamber::Kind::Double);
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

int tamber_set_ints(tamber_context* context, const char* name, const int32_t* values,
                    uint32_t count) {
  return SetNumbers(context, name, values, count, tamber::Kind::Int);
}

int tamber_set_doubles(tamber_context* context, const char* name, const double* values,
                       uint32_t count) {
  return SetNumbers(context, name, values, count, tamber::Kind::Double);
}

int tamber_set_size(tamber_context* context, const char* name, uint32_t count) {
  return WithGlobal(context, name, [&](Variable& whole, std::string_view path) {
    return ResizePart(whole, path, count);
  });
}
