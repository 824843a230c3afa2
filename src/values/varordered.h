#pragma once

#include <compare>
#include <concepts>

#include "values/variable.h"

namespace tamber {

/// Order of two values of one type; unordered when their types differ (and for a NaN). Texts are
/// compared by bytes up to the first NUL.
TAMBER_API std::partial_ordering OrderOfValues(const Variable& left, const Variable& right);

/// Base of the classes whose comparisons look at values, not names. Variables of different types
/// are neither equal nor ordered.
class TAMBER_API OrderedVariable : public Variable {
 public:
  // Templates, so that comparing two different classes finds one best candidate either way round.
  template <std::derived_from<Variable> T>
  bool operator<(const T& other) const {
    return OrderOfValues(*this, other) < 0;
  }
  template <std::derived_from<Variable> T>
  bool operator>(const T& other) const {
    return OrderOfValues(*this, other) > 0;
  }
  template <std::derived_from<Variable> T>
  bool operator==(const T& other) const {
    return OrderOfValues(*this, other) == 0;
  }

  int32_t IsCompatible(const Variable* other) const override;
  int32_t Assign(Variable* source) override;
  void Dump(KelString& out, const KelString& indent) const override;
  void DumpValue(KelString& out, const KelString& indent) const override;
  void DumpType(KelString& out, const KelString& indent, int32_t reserved) const override;

 protected:
  using Variable::Variable;
  OrderedVariable(const OrderedVariable&) = default;
};

}  // namespace tamber
