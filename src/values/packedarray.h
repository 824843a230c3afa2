#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "values/store.h"

namespace tamber {

/// A whole array as one string of bytes, which says itself what its elements are: elements and
/// members inside lie in it, members with their names. It begins like no string that is stored (see
/// EscapeString). Handles are left out. `depth`: levels of arrays and structures that are packed.
std::string PackArray(const ArrayData* array, int depth);

/// Gives an array the elements that PackArray wrote, converted to those that it is declared with.
/// What is absent or does not fit stays as it is. False, with nothing changed: the bytes are no
/// packed array, or there is no memory for one.
[[nodiscard]] bool UnpackArray(const Place& array, std::string_view bytes, int depth);

/// A string as it is stored: itself, unless it begins as packed arrays do.
std::string EscapeString(std::string_view text);
/// The string that was stored; false for a packed array.
[[nodiscard]] bool UnescapeString(std::string_view& stored);

/// Gives a value what was stored as a number, or as a string, if its kind takes such; encrypted
/// strings do not. Numbers come in through the getters of their type, so that a foreign value makes
/// no boolean of 7.
void TakeStoredNumber(Kind kind, int64_t value, Cell& slot);
void TakeStoredString(Kind kind, std::string_view text, Cell& slot);

}  // namespace tamber
