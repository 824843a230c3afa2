#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "kel/export.h"
#include "values/variable.h"

/// The elements of arrays without an object for each of them, as `Variable::GetArrayElement` makes
/// it.
namespace tamber {

/// Copies the numbers of an array from element `first` on, counted from 1, as many as there is room
/// for; numbers of another type are converted as by `GetIntegerValue` and its like. Returns how
/// many were copied: 0 when there is no such element, and for what is no array of numbers.
TAMBER_API uint32_t CopyElements(const Variable& array, uint32_t first, std::span<int32_t> out);
TAMBER_API uint32_t CopyElements(const Variable& array, uint32_t first, std::span<float> out);
TAMBER_API uint32_t CopyElements(const Variable& array, uint32_t first, std::span<double> out);

// Borrowed elements are good until the array changes or is released, which every run of a script
// may do; `GetArrayElement` moves the element that it is asked for elsewhere, too.

/// The elements of an `int[]`, `float[]` or `double[]` where they lie. Nothing for another type,
/// and as long as an element has an object of its own, because the host or a script refers to it.
TAMBER_API std::optional<std::span<const int32_t>> BorrowInts(const Variable& array);
TAMBER_API std::optional<std::span<const float>> BorrowFloats(const Variable& array);
TAMBER_API std::optional<std::span<const double>> BorrowDoubles(const Variable& array);
/// An element of a `string[]`, from 1; nothing for another type and when there is no such element.
TAMBER_API std::optional<std::string_view> BorrowString(const Variable& array, uint32_t index);

}  // namespace tamber
