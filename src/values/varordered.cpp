#include "values/varordered.h"

#include <cstring>
#include <functional>
#include <new>

#include "values/cellops.h"
#include "values/valuedump.h"

namespace tamber {
namespace {

std::partial_ordering OrderOfTexts(const char* left, const char* right) {
  return std::strcmp(left, right) <=> 0;
}

std::partial_ordering OrderOfHandles(const void* left, const void* right) {
  if (left == right) return std::partial_ordering::equivalent;
  return std::less<const void*>()(left, right) ? std::partial_ordering::less
                                               : std::partial_ordering::greater;
}

}  // namespace

std::partial_ordering OrderOfValues(const Variable& left, const Variable& right) {
  if (!left.IsSameType(&right)) return std::partial_ordering::unordered;
  switch (KindOf(left)) {
    case Kind::Bool:
    case Kind::Char:
    case Kind::Int:
      return left.GetIntegerValue() <=> right.GetIntegerValue();
    case Kind::Float:
    case Kind::Double:
      return left.GetDoubleValue() <=> right.GetDoubleValue();
    case Kind::String:
    case Kind::EString:
      return OrderOfTexts(left.GetStringValue(), right.GetStringValue());
    case Kind::Handle:
      return OrderOfHandles(left.GetHandleValue(), right.GetHandleValue());
    default:
      return std::partial_ordering::unordered;
  }
}

int32_t OrderedVariable::IsCompatible(const Variable* other) const {
  return other != nullptr && TypeOf(*this)->Accepts(*TypeOf(*other));
}

int32_t OrderedVariable::Assign(Variable* source) { return AssignVariable(*this, source); }

void OrderedVariable::Dump(KelString& out, const KelString& indent) const {
  DumpVariable(out.Str(), *this, indent.View());
}

void OrderedVariable::DumpValue(KelString& out, const KelString& indent) const {
  DumpVariableValue(out.Str(), *this, indent.View());
}

void OrderedVariable::DumpType(KelString& out, const KelString&, int32_t) const {
  out += TypeOf(*this)->Word();
}

}  // namespace tamber
