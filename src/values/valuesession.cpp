#include "values/valuesession.h"

#include <cstring>
#include <string>

#include "kel/kelascii.h"
#include "kel/number.h"
#include "kel/stop.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/store.h"
#include "values/strbuf.h"
#include "values/structdata.h"
#include "values/varestring.h"

namespace tamber {
namespace {

/// Arrays within arrays are kept to this depth.
constexpr int kMaxDepth = 32;

void StoreAt(const TypeDesc& type, Cell cell, const std::string& key, SessionStore& store,
             int depth);

std::string ElementKey(const std::string& key, uint32_t index) {
  return key + "/" + std::to_string(index + 1);
}

std::string MemberKey(const std::string& key, const Name& name) {
  return key + "/" + kel::Lowered(name.View());
}

/// The count and the elements from a position on.
void StoreElements(const ArrayData& array, uint32_t from, const std::string& key,
                   SessionStore& store, int depth) {
  store.SetInteger(key, array.Count());
  for (uint32_t i = from; i < array.Count(); ++i) {
    const Cell cell = array.Peek(i);
    if (array.StorageKind() == Kind::Any) {
      StoreAt(*TypeOf(*cell.v), *CellOf(*cell.v), ElementKey(key, i), store, depth);
    } else {
      StoreAt(*array.ElementType(), cell, ElementKey(key, i), store, depth);
    }
  }
}

/// Beside the elements, of an array that is declared without their type.
std::string ElementTypeKey(const std::string& key) { return key + "/0"; }

/// What such an array can be made of when it is read: types that need no declaration.
constexpr Kind kPlainKinds[] = {Kind::Bool,   Kind::Char,   Kind::Int,    Kind::Float,
                                Kind::Double, Kind::String, Kind::EString};

void StoreArray(const TypeDesc& type, const ArrayData* array, const std::string& key,
                SessionStore& store, int depth) {
  store.DeleteTree(key + "/");  // an array that was longer when it was last stored
  if (array != nullptr) {
    if (!type.Element() && array->ElementType())
      store.SetText(ElementTypeKey(key), array->ElementType()->Word());
    StoreElements(*array, 0, key, store, depth);
  } else {
    store.SetInteger(key, 0);
  }
}

void StoreAt(const TypeDesc& type, Cell cell, const std::string& key, SessionStore& store,
             int depth) {
  if (depth == 0) return;
  kel::CheckStop();
  switch (type.GetKind()) {
    case Kind::Bool:
    case Kind::Char:
    case Kind::Int:
      store.SetInteger(key, cell.i);
      break;
    case Kind::Float:
      store.SetText(key, kel::FormatGeneral(cell.f));
      break;
    case Kind::Double:
      store.SetText(key, kel::FormatGeneral(cell.d));
      break;
    case Kind::String:
      store.SetText(key, TextOf(cell.s));
      break;
    case Kind::EString:
      store.SetText(key, static_cast<const VarEString&>(*cell.v).Sealed());
      break;
    case Kind::Array:
      StoreArray(type, cell.a, key, store, depth - 1);
      break;
    case Kind::Struct:
      for (uint32_t i = 0; i < cell.st->Count(); ++i) {
        const StructLayout::Member& member = cell.st->Layout()->Members()[i];
        StoreAt(*member.type, cell.st->Peek(i), MemberKey(key, member.name), store, depth - 1);
      }
      break;
    default:
      break;
  }
}

template <class Real>
bool IsSameReal(Real left, Real right) {
  return std::memcmp(&left, &right, sizeof left) == 0;  // the sign of a zero counts
}

/// Whether a value is certainly as it was. Arrays and structures that were not touched are still
/// shared with what was kept of them, so that nobody looks at their parts.
bool IsUnchanged(Kind kind, Cell now, Cell before) {
  switch (kind) {
    case Kind::Bool:
    case Kind::Char:
    case Kind::Int:
      return now.i == before.i;
    case Kind::Float:
      return IsSameReal(now.f, before.f);
    case Kind::Double:
      return IsSameReal(now.d, before.d);
    case Kind::String:
      return now.s == before.s || TextOf(now.s) == TextOf(before.s);
    case Kind::EString:
      return static_cast<const VarEString&>(*now.v).Sealed() ==
             static_cast<const VarEString&>(*before.v).Sealed();
    case Kind::Array:
      return now.a == before.a;
    case Kind::Struct:
      return now.st == before.st;
    default:
      return false;
  }
}

void ChangeAt(const TypeDesc& type, Cell now, Cell before, const std::string& key,
              SessionStore& store, int depth);

void ChangeElement(const ArrayData& now, const ArrayData& before, uint32_t index,
                   const std::string& key, SessionStore& store, int depth) {
  const Cell cell = now.Peek(index);
  const Cell old = before.Peek(index);
  if (now.StorageKind() != Kind::Any) {
    if (IsUnchanged(now.StorageKind(), cell, old)) return;
    ChangeAt(*now.ElementType(), cell, old, ElementKey(key, index), store, depth);
    return;
  }
  const TypeDesc& type = *TypeOf(*cell.v);
  const std::string element = ElementKey(key, index);
  if (type.GetKind() == TypeOf(*old.v)->GetKind()) {
    ChangeAt(type, *CellOf(*cell.v), *CellOf(*old.v), element, store, depth);
  } else {
    store.DeleteTree(element + "/");
    StoreAt(type, *CellOf(*cell.v), element, store, depth);
  }
}

void ChangeArray(const TypeDesc& type, const ArrayData* now, const ArrayData* before,
                 const std::string& key, SessionStore& store, int depth) {
  const bool isAlike = now != nullptr && before != nullptr &&
                       now->StorageKind() == before->StorageKind() &&
                       now->Count() >= before->Count();
  if (!isAlike) {
    StoreArray(type, now, key, store, depth);
    return;
  }
  kel::StopPoll poll(4096);
  for (uint32_t i = 0; i < before->Count(); ++i) {
    poll.Step();
    ChangeElement(*now, *before, i, key, store, depth);
  }
  if (now->Count() > before->Count()) StoreElements(*now, before->Count(), key, store, depth);
}

void ChangeAt(const TypeDesc& type, Cell now, Cell before, const std::string& key,
              SessionStore& store, int depth) {
  const Kind kind = type.GetKind();
  if (depth == 0 || IsUnchanged(kind, now, before)) return;
  if (kind == Kind::Array) {
    ChangeArray(type, now.a, before.a, key, store, depth - 1);
  } else if (kind == Kind::Struct && now.st->Layout().Get() == before.st->Layout().Get()) {
    for (uint32_t i = 0; i < now.st->Count(); ++i) {
      const StructLayout::Member& member = now.st->Layout()->Members()[i];
      ChangeAt(*member.type, now.st->Peek(i), before.st->Peek(i), MemberKey(key, member.name),
               store, depth - 1);
    }
  } else {
    StoreAt(type, now, key, store, depth);
  }
}

void LoadAt(const TypeDesc& type, Cell& slot, const std::string& key, SessionStore& store,
            int depth);

/// Numbers come back through the getters of their type, so that a foreign value cannot make a
/// boolean of 7 or a char of 300.
bool LoadNumber(Kind kind, const std::string& key, SessionStore& store, Cell& out) {
  int64_t value = 0;
  if (!store.GetInteger(key, value)) return false;
  const auto number = static_cast<int32_t>(static_cast<uint64_t>(value) & 0xFFFFFFFFU);
  out = IntCell(kind == Kind::Bool   ? number != 0
                : kind == Kind::Char ? CellToChar(Kind::Int, IntCell(number))
                                     : number);
  return true;
}

bool LoadReal(Kind kind, const std::string& key, SessionStore& store, Cell& out) {
  std::string text;
  if (!store.GetText(key, text)) return false;
  out = ZeroCell();
  return kind == Kind::Float ? kel::ParseFloat(text, out.f) : kel::ParseDouble(text, out.d);
}

bool IsStored(SessionStore& store, const std::string& key) {
  return store.Exists(key) || !store.SubKeys(key + "/").empty();
}

/// Gives an array that is declared without a type of its elements the one that it was stored with.
void LoadElementType(const Place& place, const std::string& key, SessionStore& store) {
  std::string word;
  if (place.declared->Element() || !store.GetText(ElementTypeKey(key), word)) return;
  for (const Kind kind : kPlainKinds) {
    const TypeRef& type = TypeDesc::Of(kind);
    const ArrayData* present = place.cell->a;
    if (type->Word() != word) continue;
    if (present != nullptr && present->ElementType().Get() == type.Get()) return;
    Cell cell = ZeroCell();
    cell.a = ArrayData::New(type);
    StoreCell(Kind::Array, *place.cell, cell);
  }
}

void LoadArray(const Place& place, const std::string& key, SessionStore& store, int depth) {
  ArrayData*& slot = place.cell->a;
  int64_t count = 0;
  if (!store.GetInteger(key, count) || count < 0) return;
  LoadElementType(place, key, store);
  const int64_t present = slot != nullptr ? slot->Count() : 0;
  // A count that no element backs would only cost memory: the last element must be there.
  if (count > present && !IsStored(store, ElementKey(key, static_cast<uint32_t>(count - 1)))) {
    return;
  }
  if (Resize(place, count - present) != Stored::Done) return;
  if (slot == nullptr || slot->Count() == 0) return;
  Unshare(slot, place.declared->Element());
  for (uint32_t i = 0; i < slot->Count(); ++i) {
    Cell value = slot->Peek(i);
    if (slot->StorageKind() == Kind::Any) {
      LoadAt(*TypeOf(*value.v), *CellOf(*value.v), ElementKey(key, i), store, depth);
      continue;
    }
    OwnedCell loaded(slot->StorageKind(), CopyCell(slot->StorageKind(), value));
    LoadAt(*slot->ElementType(), loaded.cell, ElementKey(key, i), store, depth);
    slot->Put(i, loaded.Take());
  }
}

void LoadAt(const TypeDesc& type, Cell& slot, const std::string& key, SessionStore& store,
            int depth) {
  if (depth == 0) return;
  kel::CheckStop();
  const Kind kind = type.GetKind();
  Cell number = ZeroCell();
  std::string text;
  switch (kind) {
    case Kind::Bool:
    case Kind::Char:
    case Kind::Int:
      if (LoadNumber(kind, key, store, number)) slot = number;
      break;
    case Kind::Float:
    case Kind::Double:
      if (LoadReal(kind, key, store, number)) slot = number;
      break;
    case Kind::String:
      if (!store.GetText(key, text)) break;
      number.s = text.empty() ? nullptr : StrBuf::New(text);
      StoreCell(kind, slot, number);
      break;
    case Kind::EString:
      if (store.GetText(key, text)) static_cast<VarEString&>(*slot.v).SetSealed(text);
      break;
    case Kind::Array:
      LoadArray({&slot, &type}, key, store, depth - 1);
      break;
    case Kind::Struct:
      Unshare(slot.st);
      for (uint32_t i = 0; i < slot.st->Count(); ++i) {
        const StructLayout::Member& member = slot.st->Layout()->Members()[i];
        LoadAt(*member.type, *slot.st->Slot(i), MemberKey(key, member.name), store, depth - 1);
      }
      break;
    default:
      break;
  }
}

}  // namespace

void StoreValue(const Variable& variable, std::string_view key, SessionStore& store) {
  StoreAt(*TypeOf(variable), VariableAccess::CellOf(LookThrough(variable)), std::string(key), store,
          kMaxDepth);
}

void StoreChanges(const Variable& variable, const Variable& before, std::string_view key,
                  SessionStore& store) {
  ChangeAt(*TypeOf(variable), VariableAccess::CellOf(LookThrough(variable)),
           VariableAccess::CellOf(LookThrough(before)), std::string(key), store, kMaxDepth);
}

void LoadValue(Variable& variable, std::string_view key, SessionStore& store) {
  LoadAt(*TypeOf(variable), *CellOf(variable), std::string(key), store, kMaxDepth);
}

}  // namespace tamber
