#include "values/structdata.h"

#include <cassert>
#include <cstring>
#include <new>
#include <unordered_map>
#include <utility>

#include "values/account.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/store.h"
#include "values/variable.h"

namespace tamber {

namespace {

size_t SizeFor(size_t members) { return sizeof(StructData) + members * sizeof(Cell); }

}  // namespace

StructData::StructData(const Ref<StructLayout>& layout) : RefObject(Type::Struct), layout_(layout) {
  for (uint32_t i = 0; i < Count(); ++i) Cells()[i] = ZeroCell();
}

StructData::~StructData() {
  const auto& members = layout_->Members();
  for (uint32_t i = 0; i < Count(); ++i) ReleaseCell(members[i].type->GetKind(), Cells()[i]);
  if (boxes_ == nullptr) return;
  for (uint32_t i = 0; i < Count(); ++i) Variable::Delete(boxes_[i]);
  FreeBoxes();
}

StructData* StructData::Allocate(const Ref<StructLayout>& layout) {
  return new (AllocateCounted(SizeFor(layout->Members().size()))) StructData(layout);
}

/// The structures made so far for one new value. Only those that hold others are shared: that is
/// enough for a value to cost what its types are many, where two members of each type in the next
/// would double it with every type.
class StructData::Siblings {
 public:
  Siblings() { current_ = this; }
  Siblings(const Siblings&) = delete;
  Siblings& operator=(const Siblings&) = delete;
  ~Siblings() {
    current_ = nullptr;
    for (auto& [layout, data] : made_) {
      if (data != nullptr) Release(data);
    }
  }
  static Siblings* Current() { return current_; }

  StructData* Share(const Ref<StructLayout>& layout) {
    StructData*& data = made_[layout.Get()];
    if (data == nullptr) data = MakeDefault(layout);
    Retain(data);
    return data;
  }

 private:
  static inline thread_local Siblings* current_ = nullptr;
  std::unordered_map<const StructLayout*, StructData*> made_;
};

StructData* StructData::New(const Ref<StructLayout>& layout) {
  if (!layout->HoldsStructs()) return MakeDefault(layout);
  if (Siblings* siblings = Siblings::Current()) return siblings->Share(layout);
  Siblings siblings;
  return MakeDefault(layout);
}

StructData* StructData::MakeDefault(const Ref<StructLayout>& layout) {
  OwnedCell data(Kind::Struct, ZeroCell());
  data.cell.st = Allocate(layout);
  for (uint32_t i = 0; i < data.cell.st->Count(); ++i) {
    data.cell.st->Cells()[i] = layout->NewMember(i);
  }
  return data.Take().st;
}

void StructData::Destroy(StructData* data) {
  const size_t size = SizeFor(data->Count());
  data->~StructData();
  FreeCounted(static_cast<void*>(data), size);
}

StructData* StructData::Copy() const {
  OwnedCell copy(Kind::Struct, ZeroCell());
  copy.cell.st = Allocate(layout_);
  for (uint32_t i = 0; i < Count(); ++i)
    copy.cell.st->Cells()[i] = CopyCell(MemberKind(i), Peek(i));
  return copy.Take().st;
}

Cell StructData::Peek(uint32_t member) const {
  if (boxes_ != nullptr && boxes_[member] != nullptr) {
    return VariableAccess::CellOf(*boxes_[member]);
  }
  return Cells()[member];
}

Cell* StructData::Slot(uint32_t member) {
  if (boxes_ != nullptr && boxes_[member] != nullptr) {
    return &VariableAccess::CellOf(*boxes_[member]);
  }
  return &Cells()[member];
}

void StructData::Put(uint32_t member, Cell value) {
  if (boxes_ != nullptr && boxes_[member] != nullptr) {
    StoreInto(*boxes_[member], *layout_->Members()[member].type, value);
  } else {
    const Kind kind = MemberKind(member);
    StoreCell(kind, Cells()[member], WithoutBoxes(kind, value));
  }
}

Place StructData::Enter(uint32_t member) {
  if (boxes_ != nullptr && boxes_[member] != nullptr) return PlaceOf(*boxes_[member]);
  Cell& cell = Cells()[member];
  const TypeDesc& declared = *layout_->Members()[member].type;
  return declared.GetKind() == Kind::Any ? PlaceOf(*cell.v) : Place{&cell, &declared};
}

Variable* StructData::Box(uint32_t member) {
  const StructLayout::Member& description = layout_->Members()[member];
  NeedBoxes();
  if (HoldsObjects(description.type->GetKind())) {
    Cells()[member].v->SetOwnName(description.name);
    return Cells()[member].v;
  }
  if (boxes_[member] == nullptr) {
    boxes_[member] = MakeVariable(description.type, description.name, Cells()[member]);
    Cells()[member] = ZeroCell();
  }
  return boxes_[member];
}

void StructData::SetBox(uint32_t member, Variable* object) {
  NeedBoxes();
  const Kind kind = MemberKind(member);
  ReleaseCell(kind, Cells()[member]);
  Cells()[member] = ZeroCell();
  if (HoldsObjects(kind)) {
    Cells()[member].v = object;
    return;
  }
  Variable::Delete(boxes_[member]);
  boxes_[member] = object;
}

void StructData::TakeMembers(StructData& other) {
  if (other.boxes_ != nullptr) NeedBoxes();
  for (uint32_t i = 0; i < other.Count() && i < Count(); ++i) {
    std::swap(Cells()[i], other.Cells()[i]);
    if (other.boxes_ != nullptr) std::swap(boxes_[i], other.boxes_[i]);
  }
}

void StructData::NeedBoxes() {
  if (boxes_ != nullptr) return;
  const size_t size = (Count() + size_t{1}) * sizeof(Variable*);
  boxes_ = static_cast<Variable**>(AllocateCounted(size));
  std::memset(static_cast<void*>(boxes_), 0, size);
}

void StructData::FreeBoxes() {
  FreeCounted(static_cast<void*>(boxes_), (Count() + size_t{1}) * sizeof(Variable*));
  boxes_ = nullptr;
}

void StructData::SweepBoxes() {
  if (boxes_ == nullptr) return;
  bool kept = false;
  for (uint32_t i = 0; i < Count(); ++i) {
    const TypeDesc& memberType = *layout_->Members()[i].type;
    if (HoldsObjects(memberType.GetKind())) {
      Variable& object = *Cells()[i].v;
      kept |= VariableAccess::Holders(object) > 0 || !SweepInside(object);
    } else if (boxes_[i] != nullptr && CanUnbox(*boxes_[i], memberType)) {
      Cells()[i] = Unbox(boxes_[i]);
      boxes_[i] = nullptr;
    }
    kept |= boxes_[i] != nullptr;
  }
  if (!kept) FreeBoxes();
}

StructData* Unshare(StructData*& slot) {
  if (slot->IsShared()) {
    StructData* copy = slot->Copy();
    Release(slot);
    slot = copy;
  }
  return slot;
}

StructData* ShareStruct(StructData* data) {
  if (data->HasBoxes()) return data->Copy();
  assert(!HasBoxesInside(Kind::Struct, Cell{.st = data}));
  Retain(data);
  return data;
}

}  // namespace tamber
