#pragma once

#include <compare>
#include <concepts>

#include "values/variable.h"

namespace tamber {

/// Order of two values of one type; unordered when their types differ (and for a NaN). Strings are
/// compared by bytes up to the first NUL.
TAMBER_API std::partial_ordering OrderOfValues(const Variable& left, const Variable& right);

/// Base of the classes whose comparisons look at values, not names. Variables of different types
/// are neither equal nor ordered.
class TAMBER_API OrderedVariable : public Variable {
 public:
  int32_t IsCompatible(const Variable* other) const override;
  int32_t Assign(Variable* source) override;
  void Dump(KelString& out, const KelString& indent) const override;
  void DumpValue(KelString& out, const KelString& indent) const override;
  void DumpType(KelString& out, const KelString& indent, int32_t reserved) const override;
  OrderedVariable& operator=(const OrderedVariable&) = default;

 protected:
  using Variable::Variable;
  OrderedVariable(const OrderedVariable&) = default;
};

/// Pairs of which at least one is known to compare by value.
template <class L, class R>
concept ComparedByValue = std::derived_from<L, Variable> && std::derived_from<R, Variable> &&
    (std::derived_from<L, OrderedVariable> || std::derived_from<R, OrderedVariable>);

// Templates outside the class, so that both sides match exactly and two different classes find one
// best candidate, whichever stands left.
template <class L, class R>
requires ComparedByValue<L, R>
bool operator<(const L& left, const R& right) { return OrderOfValues(left, right) < 0; }
template <class L, class R>
requires ComparedByValue<L, R>
bool operator>(const L& left, const R& right) { return OrderOfValues(left, right) > 0; }
template <class L, class R>
requires ComparedByValue<L, R>
bool operator==(const L& left, const R& right) { return OrderOfValues(left, right) == 0; }

}  // namespace tamber
