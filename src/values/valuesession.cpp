#include "values/valuesession.h"

#include <string>

#include "kel/kelascii.h"
#include "kel/number.h"
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

void StoreArray(const ArrayData* array, const std::string& key, SessionStore& store, int depth) {
  store.DeleteTree(key + "/");  // an array that was longer when it was last stored
  const uint32_t count = array != nullptr ? array->Count() : 0;
  store.SetInteger(key, count);
  for (uint32_t i = 0; i < count; ++i) {
    const Cell cell = array->Peek(i);
    if (array->StorageKind() == Kind::Any) {
      StoreAt(*TypeOf(*cell.v), *CellOf(*cell.v), ElementKey(key, i), store, depth);
    } else {
      StoreAt(*array->ElementType(), cell, ElementKey(key, i), store, depth);
    }
  }
}

void StoreAt(const TypeDesc& type, Cell cell, const std::string& key, SessionStore& store,
             int depth) {
  if (depth == 0) return;
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

void LoadArray(const Place& place, const std::string& key, SessionStore& store, int depth) {
  ArrayData*& slot = place.cell->a;
  int64_t count = 0;
  if (!store.GetInteger(key, count) || count < 0) return;
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

void LoadValue(Variable& variable, std::string_view key, SessionStore& store) {
  LoadAt(*TypeOf(variable), *CellOf(variable), std::string(key), store, kMaxDepth);
}

}  // namespace tamber
