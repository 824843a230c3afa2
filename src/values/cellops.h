#pragma once

#include <string>

#include "values/typedesc.h"

class Variable;

namespace tamber {

/// Gives back what a cell of this kind owns.
void ReleaseCell(Kind kind, Cell cell);
/// A further, independent value: texts, arrays and structures are shared until changed, variables
/// are cloned.
Cell CopyCell(Kind kind, Cell cell);
/// The empty value of a type: 0, "", an empty array, a structure of empty members.
Cell DefaultCell(const TypeDesc& type);

/// Reads a cell of any kind as the design's getters do (`GetIntegerValue` and so on).
int32_t CellToInt(Kind kind, Cell cell);
int32_t CellToBool(Kind kind, Cell cell);  ///< what `GetBoolValue` gives: an integer gives itself
int32_t CellToChar(Kind kind, Cell cell);
float CellToFloat(Kind kind, Cell cell);
double CellToDouble(Kind kind, Cell cell);

/// Converts as the design's `Assign` does. `in` is borrowed; on success `out` holds a new cell of
/// `to`'s kind that the caller owns. False: `to` cannot take a value of `from`.
[[nodiscard]] bool ConvertCell(const TypeDesc& to, const TypeDesc& from, Cell in, Cell& out);

/// The text that "+" joins to a string: TRUE/FALSE, the character, decimal numbers. `cell` is of a
/// numeric kind, Handle or String.
void AppendCellText(std::string& out, Kind kind, Cell cell);

/// A variable of the type that takes over the cell.
Variable* MakeVariable(const TypeRef& type, const Name& name, Cell cell);
/// An empty variable of the type.
Variable* MakeVariable(const TypeRef& type, const Name& name);

/// The type of a variable's value (a reference gives its target's).
TypeRef TypeOf(const Variable& variable);
/// The live cell of a variable and its kind; a reference gives its target's.
Cell* CellOf(Variable& variable);
Kind KindOf(const Variable& variable);
/// A new owned cell with the variable's value.
inline Cell CopyOf(Variable& variable) { return CopyCell(KindOf(variable), *CellOf(variable)); }

}  // namespace tamber
