#pragma once

#include <cstring>
#include <memory>

#include "values/boxmap.h"
#include "values/typedesc.h"

namespace tamber {

struct Place;

/// The elements of an array, stored compactly and shared between arrays until one of them changes.
///
/// An element has an object of its own (a box) only while somebody wants one; the box then is the
/// element, and the stored cell is stale. An array with boxes is never shared, so that a reference
/// to `a[2]` stays a reference to `a[2]`. Boxes are made from the outside inwards (Whole, in
/// store.h), and values that come in lose theirs: an array without boxes has none further inside.
///
/// The elements of arrays of encrypted strings and of generic arrays are objects already. What
/// Peek returns may then be read only, as two arrays can share them. Positions in this class are
/// 0-based; scripts count from 1.
class ArrayData final : public RefObject {
 public:
  /// An empty array of one reference. `element` may be null: the generic array without a prototype.
  static ArrayData* New(const TypeRef& element);
  static void Destroy(ArrayData* array);
  static void* operator new(size_t size);
  static void operator delete(void* memory, size_t size);

  const TypeRef& ElementType() const { return element_; }
  void SetElementType(const TypeRef& element);  ///< only while empty
  /// Kind of the cells of an array with such elements.
  static Kind StorageOf(const TypeRef& element);
  /// Kind of the stored cells: that of the element type, Any for generic and odd ones.
  Kind StorageKind() const { return kind_; }
  uint32_t Count() const { return count_; }
  /// The cells from here on have not been written to since the array grew over them.
  uint32_t Written() const { return written_; }
  bool HasBoxes() const { return boxes_ != nullptr; }
  /// Whether the element has an object that it would not have without anybody who wants it.
  bool HasBox(uint32_t at) const;

  /// Raw storage of an array without boxes: int8_t for Bool and Char, int32_t for Int, float,
  /// double, and Cell for the rest.
  template <class T>
  T* Data() {
    return static_cast<T*>(data_);
  }
  template <class T>
  const T* Data() const {
    return static_cast<const T*>(data_);
  }

  /// The element's value as a cell of StorageKind(), borrowed; boxes are looked through.
  Cell Peek(uint32_t at) const;
  /// Stores a cell of StorageKind(), taking over its reference, also when it throws; the old value
  /// is released.
  void Put(uint32_t at, Cell value);
  /// Appends a cell of StorageKind(), taking over its reference. Throws std::bad_alloc; the cell is
  /// the caller's then.
  void Append(Cell value);
  /// The same for a value that goes when there is no memory.
  void AppendOwned(Cell value);
  /// The place of an element that has a cell, for changes in place. The array is not shared.
  Place Enter(uint32_t at);
  /// Grows with default values (not without an element type) or shrinks from the end. Throws
  /// std::bad_alloc, unchanged then.
  void Resize(uint64_t count);
  void Reserve(uint64_t count);
  void Swap(uint32_t a, uint32_t b);
  /// Takes an element out; the reference in the result is the caller's.
  Cell Remove(uint32_t at);
  /// An independent array with the same values, no boxes, one reference.
  ArrayData* Copy() const;

  /// Makes `element` (ownership passes) the object of the position `at`.
  void SetBox(uint32_t at, Variable* element);
  /// Appends `element` (of the storage kind; ownership passes) as the object of a new position.
  void AppendBox(Variable* element);
  /// Takes the element out together with its object, which becomes the caller's.
  Variable* RemoveBox(uint32_t at);
  /// Turns boxes that nobody else holds back into stored cells. Only callable while no host code
  /// that could hold an element without a holder is active.
  void SweepBoxes();
  /// The same from time to time: as often as it costs no more than what is done in between.
  void SweepWhenDue();
  /// The same where an element is given an object next.
  void SweepForAnother();
  /// The same of one position: before its place is given away, which another sweep would move.
  void SweepBox(uint32_t at);

 private:
  friend class Whole;
  bool TakeIn(uint32_t at, Variable* box);
  /// The element's object, made on first use; it stays owned by the array.
  Variable* Box(uint32_t at);
  explicit ArrayData(const TypeRef& element);
  ~ArrayData();
  size_t CellSize() const;
  void Grow(uint64_t count);
  void FreeData();
  static void CheckRoomForObjects(uint64_t count);
  Cell DefaultElement() const;
  void AppendDefaults(uint32_t count);
  void CloseGap(uint32_t at);
  void NeedBoxes();
  Cell LoadRaw(uint32_t at) const;
  void StoreRaw(uint32_t at, Cell value);
  Variable* FindBox(uint32_t at) const;
  void ReleaseFrom(uint32_t count);
  bool LeaveFrom(uint32_t at, uint32_t kept);
  void FreeMemory();
  void DropFrom(uint32_t count);
  void ClearFrom(uint32_t count);

  Kind kind_ = Kind::Any;
  uint32_t count_ = 0;
  uint32_t capacity_ = 0;
  uint32_t written_ = 0;
  void* data_ = nullptr;  // zero from count_ to capacity_
  std::unique_ptr<BoxMap> boxes_;
  TypeRef element_;
};

/// Makes the array in `slot` (null: empty, of `element`) safe to change: unshared. Takes the
/// reference in `slot` and leaves the new one there; returns it.
ArrayData* Unshare(ArrayData*& slot, const TypeRef& element);
/// A further reference for another array variable: shared, or copied when there are boxes.
ArrayData* ShareArray(ArrayData* array);

}  // namespace tamber
