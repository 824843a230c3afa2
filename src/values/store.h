#pragma once

#include <cstdint>

#include "values/typedesc.h"
#include "values/variable.h"

namespace tamber {

/// How a store, or the selection of a part, ended. Whatever is not Done has changed nothing.
enum class Stored : uint8_t {
  Done,
  Mismatch,  ///< the target takes no value of that type
  Bounds,    ///< the array has no such element
  NoMemory,
};

/// Where a value lies: a cell and the type that it is declared with, which alone decides what it
/// takes. A typed array so never gets other elements, and an encrypted string stays one.
///
/// A place inside another value (see EnterElement) is good until that value is next copied, shared
/// or changed. What is to be stored there must therefore be independent of it: copied, when it is a
/// structure or an array, before the place is entered. `s.list[1] = s` would else store the changed
/// structure in itself.
struct Place {
  Cell* cell;
  const TypeDesc* declared;  ///< of the cell's kind, borrowed
};

/// The value of a variable, or of what a reference refers to, as the variable is declared.
Place PlaceOf(Variable& variable);

/// Converts and stores, as `Variable::Assign` does. Objects of parts and encrypted strings stay
/// the same, so that references to them see the new value. `in` is borrowed and may be a part of
/// the target, or a value that the target is a part of when the place is a whole variable.
[[nodiscard]] Stored Assign(const Place& place, const TypeDesc& from, Cell in);

/// Appends a converted value to an array; it may be the array itself. A generic array without an
/// element type takes on that of the value, an array included, if it is empty; the elements that it
/// has then decide what it takes. No array: Mismatch.
[[nodiscard]] Stored Append(const Place& array, const TypeDesc& from, Cell in);

/// Grows an array with empty elements, or shrinks it from the end, to nothing at the least. An
/// array whose elements have no type cannot grow and stays as it is. No array: Mismatch.
[[nodiscard]] Stored Resize(const Place& array, int64_t delta);

/// Element `index`, from 1, as a borrowed cell of the array's StorageKind(). Null: an empty array.
[[nodiscard]] Stored ReadElement(const ArrayData* array, int32_t index, Cell& out);
/// The same as a new variable, for arrays whose elements are of any type.
[[nodiscard]] Stored CopyElement(const ArrayData* array, int32_t index, Variable*& out);
/// A member, from 0, as a new variable that has its name. It is no object already (HoldsObjects).
[[nodiscard]] Stored CopyMember(const StructData& structure, uint32_t member, Variable*& out);
/// Converts to the type of the element and stores. See Place for what `in` may be.
[[nodiscard]] Stored StoreElement(const Place& array, int32_t index, const TypeDesc& from, Cell in);
/// Turns the place of an array, or of a structure, into that of one of its parts, which is then
/// safe to change. Elements are counted from 1, members from 0. Elements that are numbers or
/// handles have no place of their own (Mismatch); StoreElement stores them.
[[nodiscard]] Stored EnterElement(Place& place, int32_t index);
[[nodiscard]] Stored EnterMember(Place& place, uint32_t member);

/// A value that is no part of another's cells: that of a variable, of a register of a running
/// procedure, or of the object that an element or a member has. Only in such a value a part can be
/// given an object of its own. So every value on the way to an object has one too, and a value
/// whose parts have none has none further inside either: that is how copies know when they must not
/// share (ShareArray, ShareStruct).
class Whole {
 public:
  /// The variable, or what a reference refers to.
  explicit Whole(Variable& variable);
  /// A register that nothing else holds. Never the cell of an element or a member.
  static Whole Register(Cell& value) { return Whole(value); }

  Cell& Value() const { return *cell_; }
  /// The object that was made last, owned by the value it is a part of; null before.
  Variable* Object() const { return object_; }

  /// Goes on to an element (from 1) or a member (from 0) and gives it an object if it has none.
  [[nodiscard]] Stored HoldElement(int32_t index);
  [[nodiscard]] Stored HoldMember(uint32_t member);

 private:
  explicit Whole(Cell& value) : cell_(&value) {}
  void Enter(Variable* object);

  Cell* cell_;
  Variable* object_ = nullptr;
};

}  // namespace tamber
