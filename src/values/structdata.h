#pragma once

#include "values/typedesc.h"

namespace tamber {

/// The members of one structure value, shared between structures until one of them changes.
/// As in ArrayData, a member has an object of its own only while somebody wants one, and a
/// structure with such boxes is never shared. Positions are 0-based.
class StructData final : public RefObject {
 public:
  /// A structure with default members, one reference.
  static StructData* New(const Ref<StructLayout>& layout);
  static void Destroy(StructData* data);

  const Ref<StructLayout>& Layout() const { return layout_; }
  uint32_t Count() const { return static_cast<uint32_t>(layout_->Members().size()); }
  bool HasBoxes() const { return boxes_ != nullptr; }
  /// Members of a structure without boxes.
  Cell* Cells() { return reinterpret_cast<Cell*>(this + 1); }
  const Cell* Cells() const { return reinterpret_cast<const Cell*>(this + 1); }

  /// The member's value, borrowed; boxes are looked through.
  Cell Peek(uint32_t member) const;
  /// Stores a cell of the member's kind, taking over its reference; the old value is released.
  void Put(uint32_t member, Cell value);
  /// The member's live cell, for changes in place (the box's own when there is one).
  Cell* Slot(uint32_t member);
  StructData* Copy() const;
  Variable* Box(uint32_t member);
  void SweepBoxes();

 private:
  explicit StructData(const Ref<StructLayout>& layout);
  ~StructData();

  Variable** boxes_ = nullptr;
  Ref<StructLayout> layout_;
};

StructData* Unshare(StructData*& slot);
StructData* ShareStruct(StructData* data);

}  // namespace tamber
