#include "host/elements.h"

#include <algorithm>

#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/strbuf.h"

namespace tamber {
namespace {

/// Null for what is no array, and for one that has never had an element.
const ArrayData* DataOf(const Variable& array) {
  const Variable& whole = LookThrough(array);
  return KindOf(whole) == Kind::Array ? VariableAccess::CellOf(whole).a : nullptr;
}

template <Kind kKind, class T, class NumberOf>
uint32_t Copy(const Variable& array, uint32_t first, std::span<T> out, NumberOf&& numberOf) {
  const ArrayData* const data = DataOf(array);
  if (data == nullptr || !IsNumeric(data->StorageKind())) return 0;
  if (first == 0 || first > data->Count()) return 0;
  const auto count =
      static_cast<uint32_t>(std::min<size_t>(data->Count() - (first - 1), out.size()));
  if (data->StorageKind() == kKind && !data->HasBoxes()) {
    std::copy_n(data->Data<T>() + (first - 1), count, out.data());
    return count;
  }
  for (uint32_t i = 0; i < count; ++i)
    out[i] = numberOf(data->StorageKind(), data->Peek(first - 1 + i));
  return count;
}

template <Kind kKind, class T>
std::optional<std::span<const T>> Borrow(const Variable& array) {
  const TypeRef& type = TypeOf(array);
  if (!type->IsArray() || !type->Element() || type->Element()->GetKind() != kKind) return {};
  const ArrayData* const data = DataOf(array);
  if (data == nullptr) return std::span<const T>();
  if (data->HasBoxes() || data->StorageKind() != kKind) return {};
  return std::span<const T>(data->Data<T>(), data->Count());
}

}  // namespace

uint32_t CopyElements(const Variable& array, uint32_t first, std::span<int32_t> out) {
  return Copy<Kind::Int>(array, first, out, CellToInt);
}
uint32_t CopyElements(const Variable& array, uint32_t first, std::span<float> out) {
  return Copy<Kind::Float>(array, first, out, CellToFloat);
}
uint32_t CopyElements(const Variable& array, uint32_t first, std::span<double> out) {
  return Copy<Kind::Double>(array, first, out, CellToDouble);
}

std::optional<std::span<const int32_t>> BorrowInts(const Variable& array) {
  return Borrow<Kind::Int, int32_t>(array);
}
std::optional<std::span<const float>> BorrowFloats(const Variable& array) {
  return Borrow<Kind::Float, float>(array);
}
std::optional<std::span<const double>> BorrowDoubles(const Variable& array) {
  return Borrow<Kind::Double, double>(array);
}

std::optional<std::string_view> BorrowString(const Variable& array, uint32_t index) {
  const ArrayData* const data = DataOf(array);
  const bool has = data != nullptr && data->StorageKind() == Kind::String && index != 0 &&
                   index <= data->Count();
  if (!has) return {};
  return TextOf(data->Peek(index - 1).s);
}

}  // namespace tamber
