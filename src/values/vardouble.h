#pragma once

#include "values/varscalar.h"

class VarDouble;

template <>
struct tamber::ScalarTraits<VarDouble> {
  static constexpr Kind kKind = Kind::Double;
  static constexpr Variable::enum_TypeId kId = Variable::Double;
};

/// Script type "double".
class TAMBER_API VarDouble : public tamber::VarScalar<VarDouble> {
 public:
  using VarScalar::VarScalar;
  void SetDoubleValue(double value) override;
  VarDouble& operator=(const VarDouble&) = default;

 protected:
  friend class tamber::VarScalar<VarDouble>;
  VarDouble(const VarDouble&) = default;
};

extern template class tamber::VarScalar<VarDouble>;
