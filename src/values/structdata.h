#pragma once

#include "values/typedesc.h"

namespace tamber {

struct Place;

/// The members of one structure value, shared between structures until one of them changes.
/// As in ArrayData, a member has an object of its own only while somebody wants one, and a
/// structure with such boxes is never shared. Boxes are made from the outside inwards, and values
/// that come in lose theirs: a structure without boxes has none further inside. Positions are
/// 0-based.
class StructData final : public RefObject {
 public:
  /// A structure with default members, one reference. Structures inside that are alike start as one
  /// value, which is copied when one of them changes.
  static StructData* New(const Ref<StructLayout>& layout);
  static void Destroy(StructData* data);

  const Ref<StructLayout>& Layout() const { return layout_; }
  uint32_t Count() const { return static_cast<uint32_t>(layout_->Members().size()); }
  Kind MemberKind(uint32_t member) const { return layout_->Members()[member].type->GetKind(); }
  bool HasBoxes() const { return boxes_ != nullptr; }
  /// Members of a structure without boxes.
  Cell* Cells() { return reinterpret_cast<Cell*>(this + 1); }
  const Cell* Cells() const { return reinterpret_cast<const Cell*>(this + 1); }

  /// The member's value, borrowed; boxes are looked through.
  Cell Peek(uint32_t member) const;
  /// Stores a cell of the member's kind, taking over its reference, also when it throws; the old
  /// value is released.
  void Put(uint32_t member, Cell value);
  /// The member's live cell, for changes in place (the box's own when there is one).
  Cell* Slot(uint32_t member);
  /// The member's place, for changes in place. The structure is not shared.
  Place Enter(uint32_t member);
  StructData* Copy() const;
  /// Makes `object` (of the member's kind; ownership passes) the object of the member.
  void SetBox(uint32_t member, Variable* object);
  /// Moves the members of `other`, an unshared structure whose members are the first of this one's,
  /// together with their objects. Does not throw when SetBox was called before.
  void TakeMembers(StructData& other);
  /// Turns boxes that nobody else holds back into stored cells; see ArrayData::SweepBoxes.
  void SweepBoxes();

 private:
  friend class Whole;
  class Siblings;
  /// The member's object, made on first use; it stays owned by the structure.
  Variable* Box(uint32_t member);
  static StructData* Allocate(const Ref<StructLayout>& layout);
  static StructData* MakeDefault(const Ref<StructLayout>& layout);
  void NeedBoxes();
  void FreeBoxes();
  explicit StructData(const Ref<StructLayout>& layout);
  ~StructData();

  Variable** boxes_ = nullptr;
  Ref<StructLayout> layout_;
};

/// Makes the structure in `slot` safe to change: unshared. Takes the reference in `slot` and leaves
/// the new one there; returns it.
StructData* Unshare(StructData*& slot);
/// A further reference for another structure: shared, or copied when there are boxes.
StructData* ShareStruct(StructData* data);

}  // namespace tamber
