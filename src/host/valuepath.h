#pragma once

#include <string_view>

#include "values/store.h"

namespace tamber::host {

/// How the way into a value ended.
enum class PathEnd : uint8_t {
  Found,
  Malformed,  ///< no way as scripts write it
  NoPart,     ///< no such element or member
  NoWhole,    ///< a part of what has none
  Mismatch,   ///< the part takes no value of that type
  NoMemory,
};

/// A value to look at: a cell of the type, on loan until what it is a part of changes.
struct PartView {
  const TypeDesc* type = nullptr;
  Cell cell = ZeroCell();
};

/// What a path begins with: "order" of "order.lines[1]".
std::string_view NameIn(std::string_view path);

/// Finds a part of a value by the rest of a path as scripts write it, such as "[2].name"; "" is the
/// whole. Elements count from 1.
PathEnd FindPart(Variable& whole, std::string_view path, PartView& part);
/// Gives a part an object, owned by the value that it is a part of, if it has none.
PathEnd HoldPart(Variable& whole, std::string_view path, Variable*& part);
/// Assigns to a part as scripts do.
PathEnd StorePart(Variable& whole, std::string_view path, const TypeDesc& from, Cell in);
/// Gives an array another number of elements.
PathEnd ResizePart(Variable& whole, std::string_view path, uint32_t count);

}  // namespace tamber::host
