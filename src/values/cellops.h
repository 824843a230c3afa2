#pragma once

#include <string>

#include "values/typedesc.h"
#include "values/variable.h"

namespace tamber {

/// Releases what a cell of this kind owns.
TAMBER_API void ReleaseCell(Kind kind, Cell cell);
/// A further, independent value: strings, arrays and structures are shared until changed, variables
/// are cloned.
TAMBER_API Cell CopyCell(Kind kind, Cell cell);
/// A further value that shares nothing with the first, neither now nor later: threads may make
/// such copies of a value that none of them changes.
Cell SeparateCell(Kind kind, Cell cell);
/// The same of a variable, with its flags; references are followed.
Variable* SeparateVariable(const Variable& variable, const Name& name);
/// Whether two values of a kind are of one type and alike in every part.
bool IsSameCell(Kind kind, Cell left, Cell right);
/// The empty value of a type: 0, "", an empty array, a structure as its type begins.
Cell DefaultCell(const TypeDesc& type);

/// Makes what the cell holds immutable and lets it live as long as the process, so that threads can
/// copy it: its references are no longer counted.
void KeepForever(Kind kind, Cell cell);

/// Stores a new value, taking it over, in a cell whose objects others may hold: a structure with
/// boxes takes it member by member, an encrypted string keeps its variable. Everything else
/// releases the old value. Both cells are of `kind`; structures are of one layout.
void StoreCell(Kind kind, Cell& slot, Cell value);

/// A cell that is released when it leaves scope.
struct OwnedCell {
  Kind kind;
  Cell cell;

  OwnedCell(Kind cellKind, Cell value) : kind(cellKind), cell(value) {}
  OwnedCell(const OwnedCell&) = delete;
  OwnedCell& operator=(const OwnedCell&) = delete;
  ~OwnedCell() { ReleaseCell(kind, cell); }
  Cell Take() {
    const Cell taken = cell;
    cell = ZeroCell();
    return taken;
  }
};

/// Reads a cell of any kind as the variables' getters do (`GetIntegerValue` and so on).
int32_t CellToInt(Kind kind, Cell cell);
int32_t CellToBool(Kind kind, Cell cell);  ///< what `GetBoolValue` returns: an integer itself
int32_t CellToChar(Kind kind, Cell cell);
float CellToFloat(Kind kind, Cell cell);
double CellToDouble(Kind kind, Cell cell);

/// An integer as a handle: sign-extended.
void* HandleOfInt(int32_t value);

/// Converts as `Variable::Assign` does. `in` is borrowed; on success `out` holds a new cell of
/// `to`'s kind that the caller owns. False: `to` cannot take a value of `from`.
[[nodiscard]] bool ConvertCell(const TypeDesc& to, const TypeDesc& from, Cell in, Cell& out);

/// The string that "+" joins to a string: TRUE/FALSE, the character, decimal numbers. `cell` is of
/// a numeric kind, Handle or String.
void AppendCellText(std::string& out, Kind kind, Cell cell);

/// A variable of the type that takes ownership of the cell; without memory the cell stays with the
/// caller.
Variable* MakeVariable(const TypeRef& type, const Name& name, Cell cell);
/// The same for a value that has no other owner.
Variable* MakeOwnedVariable(const TypeRef& type, const Name& name, OwnedCell&& value);
/// An empty variable of the type.
Variable* MakeVariable(const TypeRef& type, const Name& name);

/// The type of a variable's value (for a reference, its target's).
const TypeRef& TypeOf(const Variable& variable);
/// The type of a structure, or one like it whose new values begin as this one is now.
TypeRef TypeLike(const Variable& structure);
/// What a reference refers to; every other variable itself.
inline const Variable& LookThrough(const Variable& variable) {
  return VariableAccess::IsReference(variable) ? *VariableAccess::CellOf(variable).v : variable;
}
inline Variable& LookThrough(Variable& variable) {
  return VariableAccess::IsReference(variable) ? *VariableAccess::CellOf(variable).v : variable;
}
/// The live cell of a variable and its kind; for a reference, its target's. The cell of an
/// encrypted string is the variable itself, borrowed: it changes by Assign, never by another cell
/// in its place.
inline Cell* CellOf(Variable& variable) { return &VariableAccess::CellOf(LookThrough(variable)); }
inline Kind KindOf(const Variable& variable) {
  return VariableAccess::KindOf(LookThrough(variable));
}
/// A new owned cell with the variable's value.
inline Cell CopyOf(Variable& variable) { return CopyCell(KindOf(variable), *CellOf(variable)); }

/// Body of every class's `Assign`: 1 or 0, and nothing thrown.
int32_t AssignVariable(Variable& target, Variable* source);

/// Kinds whose cell is a variable already, so that an element or a member needs no box.
constexpr bool HoldsObjects(Kind kind) { return kind == Kind::EString || kind == Kind::Any; }
/// Stores a value of `type`, taking it over, in a variable that is an element or a member of
/// `type`.
void StoreInto(Variable& box, const TypeDesc& type, Cell value);
/// Sweeps the boxes inside an element or a member; true when none is left there. What lies within a
/// value that is shared must have no boxes either.
bool SweepInside(Variable& object);
/// Makes a value fit to lie inside another: without boxes, which only objects and whole variables
/// may have. Takes the value and returns it, or a copy; throws with the value released.
Cell WithoutBoxes(Kind kind, Cell value);
/// Whether a value without boxes holds some further inside, which must not be. A check for debug
/// builds: it looks at some hundred parts at the most.
bool HasBoxesInside(Kind kind, Cell value);
/// Whether a box can become a stored cell of `type` again.
bool CanUnbox(Variable& box, const TypeDesc& type);
/// The value of a box that is given up.
Cell Unbox(Variable* box);

}  // namespace tamber
