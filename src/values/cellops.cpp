#include "values/cellops.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <typeinfo>

#include "kel/cipher.h"
#include "kel/number.h"
#include "kel/stop.h"
#include "values/arraydata.h"
#include "values/nesting.h"
#include "values/store.h"
#include "values/strbuf.h"
#include "values/structdata.h"
#include "values/vararray.h"
#include "values/varbool.h"
#include "values/varchar.h"
#include "values/vardouble.h"
#include "values/varestring.h"
#include "values/varfloat.h"
#include "values/varhandle.h"
#include "values/varint.h"
#include "values/varnone.h"
#include "values/varstring.h"
#include "values/varstruct.h"

namespace tamber {
namespace {

// --- destruction -------------------------------------------------------------------------------

/// Arrays may hold arrays to any depth, and a script can build such a chain in a loop. Beyond some
/// depth what is to be destroyed waits here, so that the native stack does not overflow.
struct Graveyard {
  static constexpr uint32_t kMaxDepth = 32;
  RefObject** waiting;
  size_t count;
  size_t capacity;
  uint32_t depth;

  bool Add(RefObject* object) {
    if (count == capacity) {
      const size_t more = capacity * 2 + 64;
      void* memory = std::realloc(static_cast<void*>(waiting), more * sizeof(RefObject*));
      if (memory == nullptr) return false;
      waiting = static_cast<RefObject**>(memory);
      capacity = more;
    }
    waiting[count++] = object;
    return true;
  }
  void Close() {
    std::free(static_cast<void*>(waiting));
    waiting = nullptr;
    count = capacity = 0;
  }
};

thread_local Graveyard graveyard;  // plain data: usable while a thread ends

void DestroyAggregate(RefObject* object) {
  if (object->type == RefObject::Type::Array) {
    ArrayData::Destroy(static_cast<ArrayData*>(object));
  } else {
    StructData::Destroy(static_cast<StructData*>(object));
  }
}

// --- conversion --------------------------------------------------------------------------------

int32_t IntOfHandle(void* handle) {
  return static_cast<int32_t>(static_cast<uint32_t>(std::bit_cast<uintptr_t>(handle)));
}

/// A double beyond a float's range becomes an infinity.
float NarrowToFloat(double value) {
  constexpr double kMax = 3.4028235677973366e38;  // half a step above the largest float
  if (value >= kMax) return std::numeric_limits<float>::infinity();
  if (value <= -kMax) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(value);
}

char FirstByte(const StrBuf* text) { return TextOf(text).empty() ? '\0' : text->Data()[0]; }

/// Whether the variable behind a cell answers better than the cell's bits.
bool AsksVariable(Kind kind, Cell cell) { return HoldsObjects(kind) && cell.v != nullptr; }

StrBuf* TextOfChars(const ArrayData* chars) {
  if (chars == nullptr || chars->Count() == 0) return nullptr;
  if (!chars->HasBoxes()) {
    return StrBuf::New({reinterpret_cast<const char*>(chars->Data<int8_t>()), chars->Count()});
  }
  StrBuf* text = StrBuf::NewRaw(chars->Count());
  for (uint32_t i = 0; i < chars->Count(); ++i) {
    text->Data()[i] = static_cast<char>(chars->Peek(i).i);
  }
  return text;
}

/// The text that a string takes from a value it is compatible with.
StrBuf* ConvertToText(Kind from, Cell in) {
  switch (from) {
    case Kind::String:
      if (in.s != nullptr) Retain(in.s);
      return in.s;
    case Kind::EString: {
      const auto& secret = static_cast<const VarEString&>(*in.v);
      const std::string_view plain = secret.Plain();
      return plain.empty() ? nullptr : StrBuf::New(plain);
    }
    case Kind::Char: {
      const char byte = static_cast<char>(in.i);
      return StrBuf::New({&byte, 1});
    }
    case Kind::Array:
      return TextOfChars(in.a);
    default:
      return nullptr;
  }
}

Variable* ConvertToEString(Kind from, Cell in) {
  OwnedCell made(Kind::EString, ZeroCell());
  auto* secret = new VarEString(Name(), 0);
  made.cell.v = secret;
  if (from == Kind::EString) {
    secret->ShareText(static_cast<const VarEString&>(*in.v));
  } else {
    OwnedCell text(Kind::String, ZeroCell());
    text.cell.s = ConvertToText(from, in);
    secret->SetPlain(TextOf(text.cell.s));
  }
  return made.Take().v;
}

bool SameStorage(const TypeDesc& to, const TypeDesc& from) {
  return to.GetKind() == from.GetKind() && to.IsSame(from) &&
         to.Layout().Get() == from.Layout().Get();
}

/// Elements are converted one by one, so that a typed array never holds anything else.
bool ConvertElements(const TypeRef& to, const ArrayData& from, OwnedCell& made) {
  static const TypeDesc& unknown = *TypeDesc::Of(Kind::Any);
  const TypeDesc& source = from.StorageKind() == Kind::Any ? unknown : *from.ElementType();
  made.cell.a = ArrayData::New(to);
  made.cell.a->Reserve(from.Count());
  kel::StopPoll poll(kel::kElementsPerLook);
  for (uint32_t i = 0; i < from.Count(); ++i) {
    poll.Step();
    Cell element = ZeroCell();
    if (!ConvertCell(*to, source, from.Peek(i), element)) return false;
    made.cell.a->Append(element);
  }
  return true;
}

bool ConvertArray(const TypeDesc& to, const TypeDesc& from, Cell in, Cell& out) {
  OwnedCell made(Kind::Array, ZeroCell());
  if (in.a == nullptr) {
    // An empty array still tells a generic one what its elements are.
    if (!to.Element() && from.Element()) made.cell.a = ArrayData::New(from.Element());
  } else if (!to.Element() ||
             (in.a->ElementType() && SameStorage(*to.Element(), *in.a->ElementType()))) {
    made.cell.a = ShareArray(in.a);
  } else if (!ConvertElements(to.Element(), *in.a, made)) {
    return false;
  }
  out = made.Take();
  return true;
}

/// Members are matched by name; those that the source lacks stay empty.
bool ConvertStruct(const TypeDesc& to, Cell in, Cell& out) {
  if (in.st->Layout().Get() == to.Layout().Get()) {
    out.st = ShareStruct(in.st);
    return true;
  }
  OwnedCell made(Kind::Struct, ZeroCell());
  made.cell.st = StructData::New(to.Layout());
  const auto& targets = to.Layout()->Members();
  const StructLayout& source = *in.st->Layout();
  for (uint32_t i = 0; i < targets.size(); ++i) {
    const int32_t at = source.Find(targets[i].name.View());
    if (at < 0) continue;
    const auto member = static_cast<uint32_t>(at);
    Cell value = ZeroCell();
    if (!ConvertCell(*targets[i].type, *source.Members()[member].type, in.st->Peek(member),
                     value)) {
      return false;
    }
    made.cell.st->Put(i, value);
  }
  out = made.Take();
  return true;
}

void* ConvertToHandle(Kind from, Cell in) {
  return from == Kind::Handle ? in.p : HandleOfInt(CellToInt(from, in));
}

Variable* CopyToVariable(const TypeDesc& type, Cell in) {
  OwnedCell copy(type.GetKind(), CopyCell(type.GetKind(), in));
  Variable* variable = MakeVariable(TypeRef(&type), Name(), copy.cell);
  copy.Take();
  return variable;
}

Variable* MakeTypedArray(const TypeRef& type, const Name& name) {
  switch (type->Element() ? type->Element()->GetKind() : Kind::None) {
    case Kind::Bool:
      return new VarBooleanArray(type, name, 0);
    case Kind::Char:
      return new VarCharArray(type, name, 0);
    case Kind::Int:
      return new VarIntegerArray(type, name, 0);
    case Kind::Float:
      return new VarFloatArray(type, name, 0);
    case Kind::Double:
      return new VarDoubleArray(type, name, 0);
    case Kind::String:
      return new VarStringArray(type, name, 0);
    case Kind::EString:
      return new VarEStringArray(type, name, 0);
    case Kind::Handle:
      return new VarHandleArray(type, name, 0);
    case Kind::Struct:
      return new VarStructArray(type, name, 0);
    default:
      return new VarArray(type, name, 0);
  }
}

Variable* MakeEmpty(const TypeRef& type, const Name& name) {
  switch (type->GetKind()) {
    case Kind::Bool:
      return new VarBoolean(name, 0);
    case Kind::Char:
      return new VarChar(name, 0);
    case Kind::Int:
      return new VarInteger(name, 0);
    case Kind::Float:
      return new VarFloat(name, 0);
    case Kind::Double:
      return new VarDouble(name, 0);
    case Kind::String:
      return new VarString(name, 0);
    case Kind::EString:
      return new VarEString(name, 0);
    case Kind::Handle:
      return new VarHandle(type, name, 0);
    case Kind::Array:
      return MakeTypedArray(type, name);
    default:
      return new VarNone(name, 0);
  }
}

bool IsSameArray(const ArrayData* left, const ArrayData* right) {
  const uint32_t count = left != nullptr ? left->Count() : 0;
  if (left == right || count != (right != nullptr ? right->Count() : 0)) return left == right;
  if (count == 0) return true;
  if (left->StorageKind() != right->StorageKind()) return false;
  kel::StopPoll poll(kel::kElementsPerLook);
  for (uint32_t i = 0; i < count; ++i) {
    poll.Step();
    if (!IsSameCell(left->StorageKind(), left->Peek(i), right->Peek(i))) return false;
  }
  return true;
}

}  // namespace

void DestroyObject(RefObject* object) {
  if (object->type == RefObject::Type::String) {
    StrBuf::Destroy(static_cast<StrBuf*>(object));
    return;
  }
  Graveyard& yard = graveyard;
  if (yard.depth >= Graveyard::kMaxDepth && yard.Add(object)) return;
  ++yard.depth;
  DestroyAggregate(object);
  while (yard.depth == 1 && yard.count > 0) DestroyAggregate(yard.waiting[--yard.count]);
  --yard.depth;
  if (yard.depth == 0 && yard.waiting != nullptr) yard.Close();
}

void ReleaseCell(Kind kind, Cell cell) {
  switch (kind) {
    case Kind::String:
      if (cell.s != nullptr) Release(cell.s);
      break;
    case Kind::Struct:
      if (cell.st != nullptr) Release(cell.st);
      break;
    case Kind::Array:
      if (cell.a != nullptr) Release(cell.a);
      break;
    case Kind::EString:
    case Kind::Any:
      Variable::Delete(cell.v);
      break;
    default:
      break;
  }
}

Cell CopyCell(Kind kind, Cell cell) {
  switch (kind) {
    case Kind::String:
      if (cell.s != nullptr) Retain(cell.s);
      break;
    case Kind::Struct:
      cell.st = ShareStruct(cell.st);
      break;
    case Kind::Array:
      cell.a = ShareArray(cell.a);
      break;
    case Kind::EString:
    case Kind::Any:
      cell.v = cell.v->Clone();
      cell.v->SetOwnName(Name());
      cell.v->SetVarFlags(0);
      break;
    default:
      break;
  }
  return cell;
}

Cell SeparateCell(Kind kind, Cell cell) {
  OwnedCell made(kind, ZeroCell());
  switch (kind) {
    case Kind::String:
      if (cell.s != nullptr) made.cell.s = StrBuf::New(cell.s->View());
      break;
    case Kind::EString: {
      auto* secret = new VarEString(Name(), 0);
      made.cell.v = secret;
      static_cast<void>(secret->SetSealed(static_cast<const VarEString&>(*cell.v).Sealed()));
      break;
    }
    case Kind::Struct:
      made.cell.st = StructData::New(cell.st->Layout());
      Unshare(made.cell.st);
      for (uint32_t i = 0; i < cell.st->Count(); ++i) {
        made.cell.st->Put(i, SeparateCell(cell.st->MemberKind(i), cell.st->Peek(i)));
      }
      break;
    case Kind::Array:
      if (cell.a == nullptr) break;
      if (!IsManaged(cell.a->StorageKind())) {
        made.cell.a = cell.a->Copy();
        break;
      }
      made.cell.a = ArrayData::New(cell.a->ElementType());
      made.cell.a->Reserve(cell.a->Count());
      for (uint32_t i = 0; i < cell.a->Count(); ++i) {
        made.cell.a->AppendOwned(SeparateCell(cell.a->StorageKind(), cell.a->Peek(i)));
      }
      break;
    case Kind::Any: {
      OwnedCell value(KindOf(*cell.v), SeparateCell(KindOf(*cell.v), *CellOf(*cell.v)));
      made.cell.v = MakeVariable(TypeOf(*cell.v), Name(), value.cell);
      value.Take();
      break;
    }
    default:
      return cell;
  }
  return made.Take();
}

Variable* SeparateVariable(const Variable& variable, const Name& name) {
  Variable& source = LookThrough(const_cast<Variable&>(variable));
  const Kind kind = KindOf(source);
  // Threads that count uses of one name would wait for each other.
  const Name own(name.View());
  OwnedCell value(kind, SeparateCell(kind, *CellOf(source)));
  Variable* copy = MakeVariable(TypeOf(source), own, value.cell);
  value.Take();
  if (!IsManaged(kind) && typeid(*copy) != typeid(source)) {
    Variable::Delete(copy);
    copy = source.Clone();  // of its very class, which counts nothing
    copy->SetOwnName(own);
  }
  copy->SetVarFlags(variable.GetVarFlags());
  return copy;
}

bool IsSameCell(Kind kind, Cell left, Cell right) {
  switch (kind) {
    case Kind::String:
      return TextOf(left.s) == TextOf(right.s);
    case Kind::EString:
      return static_cast<const VarEString&>(*left.v).Plain() ==
             static_cast<const VarEString&>(*right.v).Plain();
    case Kind::Struct:
      if (left.st == right.st) return true;
      if (left.st->Layout().Get() != right.st->Layout().Get()) return false;
      for (uint32_t i = 0; i < left.st->Count(); ++i) {
        if (!IsSameCell(left.st->MemberKind(i), left.st->Peek(i), right.st->Peek(i))) return false;
      }
      return true;
    case Kind::Array:
      return IsSameArray(left.a, right.a);
    case Kind::Any:
      return TypeOf(*left.v)->IsSame(*TypeOf(*right.v)) &&
             IsSameCell(KindOf(*left.v), *CellOf(*left.v), *CellOf(*right.v));
    default:
      return left.bits == right.bits;
  }
}

Cell DefaultCell(const TypeDesc& type) {
  static const Ref<StructLayout>& empty = *new Ref<StructLayout>(StructLayout::Make(Name(), {}));
  Cell cell = ZeroCell();
  switch (type.GetKind()) {
    case Kind::Struct:
      cell.st = StructData::New(type.Layout() ? type.Layout() : empty);
      break;
    case Kind::EString:
      cell.v = new VarEString(Name(), 0);
      break;
    case Kind::Any:
      cell.v = new VarNone(Name(), 0);
      break;
    default:
      break;
  }
  return cell;
}

void KeepForever(Kind kind, Cell cell) {
  switch (kind) {
    case Kind::String:
      if (cell.s != nullptr) cell.s->refs = -1;
      break;
    case Kind::EString:
      static_cast<VarEString*>(cell.v)->KeepTextForever();
      break;
    case Kind::Any:
      KeepForever(KindOf(*cell.v), *CellOf(*cell.v));
      break;
    case Kind::Struct:
      cell.st->refs = -1;
      for (uint32_t i = 0; i < cell.st->Count(); ++i) {
        KeepForever(cell.st->MemberKind(i), cell.st->Peek(i));
      }
      break;
    case Kind::Array:
      if (cell.a == nullptr) break;
      cell.a->refs = -1;
      for (uint32_t i = 0; i < cell.a->Count() && IsManaged(cell.a->StorageKind()); ++i) {
        KeepForever(cell.a->StorageKind(), cell.a->Peek(i));
      }
      break;
    default:
      break;
  }
}

void StoreCell(Kind kind, Cell& slot, Cell value) {
  if (kind == Kind::EString && slot.v != nullptr) {
    static_cast<VarEString*>(slot.v)->ShareText(static_cast<const VarEString&>(*value.v));
    Variable::Delete(value.v);
    return;
  }
  if (kind == Kind::Struct && slot.st != nullptr && slot.st != value.st && slot.st->HasBoxes()) {
    OwnedCell source(kind, value);
    // A host can have added members to one of them; those that both know come first in both.
    const uint32_t count = std::min(slot.st->Count(), source.cell.st->Count());
    for (uint32_t i = 0; i < count; ++i) {
      if (slot.st->MemberKind(i) != source.cell.st->MemberKind(i)) break;
      slot.st->Put(i, CopyCell(slot.st->MemberKind(i), source.cell.st->Peek(i)));
    }
    return;
  }
  const Cell old = slot;
  slot = value;
  ReleaseCell(kind, old);
}

void StoreInto(Variable& box, const TypeDesc& type, Cell value) {
  const TypeDesc& own = *TypeOf(box);
  if (own.GetKind() == Kind::Struct && own.Layout().Get() != type.Layout().Get()) {
    // A host gave this structure further members; those that both know are taken over.
    OwnedCell source(Kind::Struct, value);
    if (Assign(PlaceOf(box), type, value) == Stored::NoMemory) throw std::bad_alloc();
    return;
  }
  StoreCell(type.GetKind(), VariableAccess::CellOf(box), value);
}

bool SweepInside(Variable& object) {
  const Nesting nesting;
  if (nesting.IsTooDeep()) return false;
  const Cell cell = VariableAccess::CellOf(object);
  switch (VariableAccess::KindOf(object)) {
    case Kind::Struct:
      cell.st->SweepBoxes();
      return !cell.st->HasBoxes();
    case Kind::Array:
      if (cell.a == nullptr) return true;
      cell.a->SweepBoxes();
      return !cell.a->HasBoxes();
    default:
      return true;
  }
}

Cell WithoutBoxes(Kind kind, Cell value) {
  const bool boxed = (kind == Kind::Struct && value.st != nullptr && value.st->HasBoxes()) ||
                     (kind == Kind::Array && value.a != nullptr && value.a->HasBoxes());
  if (!boxed) return value;
  const OwnedCell original(kind, value);
  return CopyCell(kind, value);
}

bool HasBoxesInside(Kind kind, Cell value) {
  int32_t left = 300;
  const auto look = [&left](const auto& self, Kind at, Cell cell) -> bool {
    if (--left < 0) return false;
    if (at == Kind::Any) return self(self, KindOf(*cell.v), *CellOf(*cell.v));
    if (at == Kind::Struct) {
      if (cell.st->HasBoxes()) return true;
      for (uint32_t i = 0; i < cell.st->Count() && left > 0; ++i) {
        if (self(self, cell.st->MemberKind(i), cell.st->Peek(i))) return true;
      }
    }
    if (at != Kind::Array || cell.a == nullptr) return false;
    if (cell.a->HasBoxes()) return true;
    for (uint32_t i = 0; i < cell.a->Count() && left > 0; ++i) {
      if (self(self, cell.a->StorageKind(), cell.a->Peek(i))) return true;
    }
    return false;
  };
  return look(look, kind, value);
}

bool CanUnbox(Variable& box, const TypeDesc& type) {
  if (VariableAccess::Holders(box) > 0 || !SweepInside(box)) return false;
  return type.GetKind() != Kind::Struct ||
         VariableAccess::CellOf(box).st->Layout().Get() == type.Layout().Get();
}

Cell Unbox(Variable* box) {
  Cell& cell = VariableAccess::CellOf(*box);
  const Cell value = cell;
  cell = ZeroCell();
  Variable::Delete(box);
  return value;
}

int32_t CellToInt(Kind kind, Cell cell) {
  switch (kind) {
    case Kind::Bool:
    case Kind::Char:
    case Kind::Int:
      return cell.i;
    case Kind::Float:
      return kel::DoubleToInt32(static_cast<double>(cell.f));
    case Kind::Double:
      return kel::DoubleToInt32(cell.d);
    case Kind::Handle:
      return IntOfHandle(cell.p);
    default:
      return AsksVariable(kind, cell) ? cell.v->GetIntegerValue() : 0;
  }
}

int32_t CellToBool(Kind kind, Cell cell) {
  switch (kind) {
    case Kind::Float:
      return cell.f != 0.0F;
    case Kind::Double:
      return cell.d != 0.0;
    case Kind::Handle:
      return cell.p != nullptr;
    case Kind::String:
      return FirstByte(cell.s) != '\0';
    default:
      return AsksVariable(kind, cell) ? cell.v->GetBoolValue() : CellToInt(kind, cell);
  }
}

int32_t CellToChar(Kind kind, Cell cell) {
  switch (kind) {
    case Kind::String:
      return static_cast<int8_t>(FirstByte(cell.s));
    case Kind::Handle:
      return 0;
    default:
      if (AsksVariable(kind, cell)) return static_cast<int8_t>(cell.v->GetCharValue());
      return static_cast<int8_t>(CellToInt(kind, cell));
  }
}

float CellToFloat(Kind kind, Cell cell) {
  switch (kind) {
    case Kind::Float:
      return cell.f;
    case Kind::Bool:
    case Kind::Char:
    case Kind::Int:
      return static_cast<float>(cell.i);
    default:
      return NarrowToFloat(CellToDouble(kind, cell));
  }
}

double CellToDouble(Kind kind, Cell cell) {
  switch (kind) {
    case Kind::Bool:
    case Kind::Char:
    case Kind::Int:
      return cell.i;
    case Kind::Float:
      return static_cast<double>(cell.f);
    case Kind::Double:
      return cell.d;
    default:
      return AsksVariable(kind, cell) ? cell.v->GetDoubleValue() : 0;
  }
}

void* HandleOfInt(int32_t value) {
  return std::bit_cast<void*>(static_cast<uintptr_t>(static_cast<intptr_t>(value)));
}

bool ConvertCell(const TypeDesc& to, const TypeDesc& from, Cell in, Cell& out) {
  if (from.GetKind() == Kind::Any && in.v != nullptr) {
    return ConvertCell(to, *TypeOf(*in.v), *CellOf(*in.v), out);
  }
  if (!to.Accepts(from)) return false;
  const Kind kind = from.GetKind();
  Cell made = ZeroCell();
  switch (to.GetKind()) {
    case Kind::None:
      break;
    case Kind::Bool:
      made.i = CellToBool(kind, in) != 0;
      break;
    case Kind::Char:
      made.i = CellToChar(kind, in);
      break;
    case Kind::Int:
      made.i = CellToInt(kind, in);
      break;
    case Kind::Float:
      made.f = CellToFloat(kind, in);
      break;
    case Kind::Double:
      made.d = CellToDouble(kind, in);
      break;
    case Kind::String:
      made.s = ConvertToText(kind, in);
      break;
    case Kind::EString:
      made.v = ConvertToEString(kind, in);
      break;
    case Kind::Handle:
      made.p = ConvertToHandle(kind, in);
      break;
    case Kind::Struct:
      if (!ConvertStruct(to, in, made)) return false;
      break;
    case Kind::Array:
      if (!ConvertArray(to, from, in, made)) return false;
      break;
    case Kind::Any:
      made.v = CopyToVariable(from, in);
      break;
  }
  out = made;
  return true;
}

void AppendCellText(std::string& out, Kind kind, Cell cell) {
  switch (kind) {
    case Kind::Bool:
      out += cell.i != 0 ? "TRUE" : "FALSE";
      break;
    case Kind::Char:
      out.push_back(static_cast<char>(cell.i));
      break;
    case Kind::Int:
    case Kind::Handle:
      out += std::to_string(CellToInt(kind, cell));
      break;
    case Kind::Float:
      out += kel::ShortestText(cell.f);
      break;
    case Kind::Double:
      out += kel::ShortestText(cell.d);
      break;
    case Kind::String:
      out += TextOf(cell.s);
      break;
    case Kind::EString:
      out += static_cast<const VarEString&>(*cell.v).Plain();
      break;
    default:
      break;
  }
}

Variable* MakeVariable(const TypeRef& type, const Name& name, Cell cell) {
  switch (type->GetKind()) {
    case Kind::Struct:
      return new VarStruct(type, name, cell.st);
    case Kind::EString:
    case Kind::Any:
      cell.v->SetOwnName(name);
      return cell.v;
    default: {
      Variable* variable = MakeEmpty(type, name);
      VariableAccess::CellOf(*variable) = cell;
      return variable;
    }
  }
}

Variable* MakeOwnedVariable(const TypeRef& type, const Name& name, OwnedCell&& value) {
  Variable* const made = MakeVariable(type, name, value.cell);
  value.Take();
  return made;
}

Variable* MakeVariable(const TypeRef& type, const Name& name) {
  OwnedCell value(type->GetKind(), DefaultCell(*type));
  Variable* variable = MakeVariable(type, name, value.cell);
  value.Take();
  return variable;
}

const TypeRef& TypeOf(const Variable& variable) {
  const Variable& behind = LookThrough(variable);
  switch (VariableAccess::KindOf(behind)) {
    case Kind::Handle:
      return static_cast<const VarHandle&>(behind).Type();
    case Kind::Struct:
      return static_cast<const VarStruct&>(behind).Type();
    case Kind::Array:
      return static_cast<const VarArray&>(behind).Type();
    default:
      return TypeDesc::Of(VariableAccess::KindOf(behind));
  }
}

TypeRef TypeLike(const Variable& structure) {
  const Ref<StructLayout> layout =
      StructLayout::MakeLike(*VariableAccess::CellOf(LookThrough(structure)).st);
  const TypeRef& own = TypeOf(structure);
  return layout.Get() == own->Layout().Get() ? own : TypeDesc::StructOf(layout);
}

int32_t AssignVariable(Variable& target, Variable* source) {
  if (source == nullptr) return 0;
  return Assign(PlaceOf(target), *TypeOf(*source), *CellOf(*source)) == Stored::Done;
}

}  // namespace tamber
