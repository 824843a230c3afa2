#pragma once

#include "values/varscalar.h"

class VarFloat;

template <>
struct tamber::ScalarTraits<VarFloat> {
  static constexpr Kind kKind = Kind::Float;
  static constexpr Variable::enum_TypeId kId = Variable::Float;
};

/// Script type "float".
class TAMBER_API VarFloat : public tamber::VarScalar<VarFloat> {
 public:
  using VarScalar::VarScalar;
  void SetFloatValue(float value) override;
  VarFloat& operator=(const VarFloat&) = default;

 protected:
  friend class tamber::VarScalar<VarFloat>;
  VarFloat(const VarFloat&) = default;
};

extern template class tamber::VarScalar<VarFloat>;
