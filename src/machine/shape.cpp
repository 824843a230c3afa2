#include "machine/shape.h"

#include "values/cellops.h"
#include "values/variable.h"

namespace tamber {

bool HasLayoutOf(const TypeDesc& given, const TypeDesc& wanted) {
  if (given.GetKind() != wanted.GetKind()) return false;
  if (given.GetKind() == Kind::Struct) return given.Layout().Get() == wanted.Layout().Get();
  if (given.GetKind() != Kind::Array) return true;
  const TypeDesc* element = wanted.Element().Get();
  if (element == nullptr || element == given.Element().Get()) return true;
  return given.Element() && HasLayoutOf(*given.Element(), *element);
}

bool HasLayoutOf(const Variable& variable, const TypeDesc& wanted) {
  return KindOf(variable) == wanted.GetKind() && HasLayoutOf(*TypeOf(variable), wanted);
}

}  // namespace tamber
