#include "values/store.h"

#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/structdata.h"
#include "values/varstring.h"

namespace tamber {
namespace {

/// Runs a store that tells how it ended, but throws when there is no memory.
template <class Change>
Stored Try(Change&& change) {
  Stored stored = Stored::NoMemory;
  Attempt([&] { stored = change(); });
  return stored;
}

bool Has(const ArrayData* array, int32_t index) {
  return array != nullptr && static_cast<uint32_t>(index) - 1 < array->Count();
}
uint32_t PositionOf(int32_t index) { return static_cast<uint32_t>(index) - 1; }

/// A value of a type that only the run knows is a variable, and that variable's value counts.
bool IsVariable(const TypeDesc& type, Cell in) {
  return type.GetKind() == Kind::Any && in.v != nullptr;
}

/// The value as an element of `type` (null: of any), a cell of StorageOf(type).
bool ConvertElement(const TypeRef& type, const TypeDesc& from, Cell in, OwnedCell& out) {
  if (out.kind != Kind::Any) return ConvertCell(*type, from, in, out.cell);
  if (!type) return ConvertCell(*TypeDesc::Of(Kind::Any), from, in, out.cell);
  OwnedCell converted(type->GetKind(), ZeroCell());
  if (!ConvertCell(*type, from, in, converted.cell)) return false;
  out.cell.v = MakeVariable(type, Name(), converted.cell);
  converted.Take();
  return true;
}

Stored AppendTo(ArrayData*& slot, const TypeRef& declared, const TypeDesc& from, Cell in) {
  if (slot != nullptr && slot->ElementType().Get() == &from && !IsManaged(from.GetKind())) {
    Unshare(slot, declared)->Append(in);
    return Stored::Done;
  }
  const bool empty = slot == nullptr || slot->Count() == 0;
  TypeRef type = slot != nullptr && slot->ElementType() ? slot->ElementType() : declared;
  if (!type && empty) type = TypeRef(&from);
  OwnedCell value(ArrayData::StorageOf(type), ZeroCell());
  if (!ConvertElement(type, from, in, value)) return Stored::Mismatch;
  ArrayData* array = Unshare(slot, declared);
  if (empty && !array->ElementType()) array->SetElementType(type);
  array->Append(value.cell);
  value.Take();
  return Stored::Done;
}

}  // namespace

Place PlaceOf(Variable& variable) { return {CellOf(variable), TypeOf(variable).Get()}; }

Stored Assign(const Place& place, const TypeDesc& from, Cell in) {
  if (IsVariable(*place.declared, *place.cell)) return Assign(PlaceOf(*place.cell->v), from, in);
  if (IsVariable(from, in)) return Assign(place, *TypeOf(*in.v), *CellOf(*in.v));
  const Kind kind = place.declared->GetKind();
  if (kind == Kind::Array && from.IsArray() && in.a == place.cell->a && in.a != nullptr) {
    // Its own elements: references to them stay.
    return place.declared->Accepts(from) ? Stored::Done : Stored::Mismatch;
  }
  return Try([&] {
    OwnedCell value(kind, ZeroCell());
    if (!ConvertCell(*place.declared, from, in, value.cell)) return Stored::Mismatch;
    StoreCell(kind, *place.cell, value.Take());
    return Stored::Done;
  });
}

Stored Append(const Place& array, const TypeDesc& from, Cell in) {
  if (IsVariable(from, in)) return Append(array, *TypeOf(*in.v), *CellOf(*in.v));
  if (!array.declared->IsArray() || from.GetKind() == Kind::None) return Stored::Mismatch;
  return Try([&] { return AppendTo(array.cell->a, array.declared->Element(), from, in); });
}

Stored Resize(const Place& array, int64_t delta) {
  if (!array.declared->IsArray()) return Stored::Mismatch;
  ArrayData*& slot = array.cell->a;
  const TypeRef& element = array.declared->Element();
  const int64_t count = slot != nullptr ? slot->Count() : 0;
  const bool grows = delta > 0 && (element || (slot != nullptr && slot->ElementType()));
  if (!grows && (delta >= 0 || count == 0)) return Stored::Done;
  return Try([&] {
    const int64_t wanted = delta < -count ? 0 : count + delta;
    Unshare(slot, element)->Resize(static_cast<uint64_t>(wanted));
    return Stored::Done;
  });
}

Stored ReadElement(const ArrayData* array, int32_t index, Cell& out) {
  if (!Has(array, index)) return Stored::Bounds;
  out = array->Peek(PositionOf(index));
  return Stored::Done;
}

Stored CopyElement(const ArrayData* array, int32_t index, Variable*& out) {
  if (!Has(array, index)) return Stored::Bounds;
  return Try([&] {
    const Kind kind = array->StorageKind();
    OwnedCell value(kind, CopyCell(kind, array->Peek(PositionOf(index))));
    out = kind == Kind::Any ? value.cell.v : MakeVariable(array->ElementType(), Name(), value.cell);
    value.Take();
    return Stored::Done;
  });
}

Stored CopyMember(const StructData& structure, uint32_t member, Variable*& out) {
  return Try([&] {
    const StructLayout::Member& description = structure.Layout()->Members()[member];
    const Kind kind = description.type->GetKind();
    OwnedCell value(kind, CopyCell(kind, structure.Peek(member)));
    out = MakeVariable(description.type, description.name, value.cell);
    value.Take();
    return Stored::Done;
  });
}

Stored StoreElement(const Place& array, int32_t index, const TypeDesc& from, Cell in) {
  const ArrayData* data = array.cell->a;
  if (!Has(data, index)) return Stored::Bounds;
  return Try([&] {
    const Kind kind = data->StorageKind();
    const Cell old = data->Peek(PositionOf(index));
    const TypeDesc& type = kind == Kind::Any ? *TypeOf(*old.v) : *data->ElementType();
    OwnedCell value(type.GetKind(), ZeroCell());
    if (!ConvertCell(type, from, in, value.cell)) return Stored::Mismatch;
    ArrayData* own = Unshare(array.cell->a, array.declared->Element());
    if (kind == Kind::Any) {
      Variable& object = *own->Peek(PositionOf(index)).v;
      StoreCell(value.kind, *CellOf(object), value.Take());
    } else {
      own->Put(PositionOf(index), value.Take());
    }
    return Stored::Done;
  });
}

Stored EnterElement(Place& place, int32_t index) {
  const ArrayData* array = place.cell->a;
  if (!Has(array, index)) return Stored::Bounds;
  if (!IsManaged(array->StorageKind())) return Stored::Mismatch;
  return Try([&] {
    place = Unshare(place.cell->a, place.declared->Element())->Enter(PositionOf(index));
    return Stored::Done;
  });
}

Stored EnterMember(Place& place, uint32_t member) {
  return Try([&] {
    place = Unshare(place.cell->st)->Enter(member);
    return Stored::Done;
  });
}

Whole::Whole(Variable& variable) : cell_(CellOf(variable)) {}

void Whole::Enter(Variable* object) {
  object_ = object;
  cell_ = CellOf(*object);
}

Stored Whole::HoldElement(int32_t index) {
  if (!Has(cell_->a, index)) return Stored::Bounds;
  return Try([&] {
    Enter(Unshare(cell_->a, cell_->a->ElementType())->Box(PositionOf(index)));
    return Stored::Done;
  });
}

Stored Whole::HoldMember(uint32_t member) {
  return Try([&] {
    Enter(Unshare(cell_->st)->Box(member));
    return Stored::Done;
  });
}

}  // namespace tamber
