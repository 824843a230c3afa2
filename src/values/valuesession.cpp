#include "values/valuesession.h"

#include <cstring>
#include <string>

#include "kel/kelascii.h"
#include "kel/number.h"
#include "kel/stop.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/packedarray.h"
#include "values/store.h"
#include "values/strbuf.h"
#include "values/structdata.h"
#include "values/varestring.h"

namespace tamber {
namespace {

/// Arrays within arrays are kept to this depth.
constexpr int kMaxDepth = 32;

std::string ElementKey(const std::string& key, uint32_t index) {
  return key + "/" + std::to_string(index + 1);
}

std::string MemberKey(const std::string& key, const Name& name) {
  return key + "/" + kel::Lowered(name.View());
}

void StoreArray(const ArrayData* array, const std::string& key, SessionStore& store, int depth) {
  store.DeleteTree(key + "/");  // the elements, which earlier versions stored one by one
  store.SetText(key, PackArray(array, depth));
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
      store.SetText(key, EscapeString(TextOf(cell.s)));
      break;
    case Kind::EString:
      store.SetText(key, EscapeString(static_cast<const VarEString&>(*cell.v).Sealed()));
      break;
    case Kind::Array:
      StoreArray(cell.a, key, store, depth - 1);
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

/// An array that the store holds in one piece already.
void ChangeArray(const ArrayData* now, const ArrayData* before, const std::string& key,
                 SessionStore& store, int depth) {
  const std::string packed = PackArray(now, depth);
  if (packed != PackArray(before, depth)) store.SetText(key, packed);
}

void ChangeAt(const TypeDesc& type, Cell now, Cell before, const std::string& key,
              SessionStore& store, int depth) {
  const Kind kind = type.GetKind();
  if (depth == 0 || IsUnchanged(kind, now, before)) return;
  if (kind == Kind::Array) {
    ChangeArray(now.a, before.a, key, store, depth - 1);
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

bool IsStored(SessionStore& store, const std::string& key) {
  return store.Exists(key) || !store.SubKeys(key + "/").empty();
}

/// Earlier versions stored the count under the key of the array and the elements below. Beside the
/// elements, of an array that is declared without their type.
std::string ElementTypeKey(const std::string& key) { return key + "/0"; }

/// What such an array can be made of when it is read: types that need no declaration.
constexpr Kind kPlainKinds[] = {Kind::Bool,   Kind::Char,   Kind::Int,    Kind::Float,
                                Kind::Double, Kind::String, Kind::EString};

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

void LoadElements(const Place& place, const std::string& key, SessionStore& store, int depth) {
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

void LoadArray(const Place& place, const std::string& key, SessionStore& store, int depth) {
  std::string packed;
  const bool isThere = store.GetText(key, packed);
  if (!isThere || !UnpackArray(place, packed, depth)) LoadElements(place, key, store, depth);
}

void LoadString(Kind kind, Cell& slot, const std::string& key, SessionStore& store) {
  std::string text;
  if (!store.GetText(key, text)) return;
  std::string_view value = text;
  if (!UnescapeString(value)) return;
  if (kind == Kind::EString) {
    static_cast<VarEString&>(*slot.v).SetSealed(value);
  } else {
    TakeStoredString(kind, value, slot);
  }
}

void LoadAt(const TypeDesc& type, Cell& slot, const std::string& key, SessionStore& store,
            int depth) {
  if (depth == 0) return;
  kel::CheckStop();
  const Kind kind = type.GetKind();
  int64_t number = 0;
  switch (kind) {
    case Kind::Bool:
    case Kind::Char:
    case Kind::Int:
      if (store.GetInteger(key, number)) TakeStoredNumber(kind, number, slot);
      break;
    case Kind::Float:
    case Kind::Double:
    case Kind::String:
    case Kind::EString:
      LoadString(kind, slot, key, store);
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
