#pragma once

#include "values/varscalar.h"

class VarInteger;

template <>
struct tamber::ScalarTraits<VarInteger> {
  static constexpr Kind kKind = Kind::Int;
  static constexpr Variable::enum_TypeId kId = Variable::Integer;
};

/// Script type "integer": 32 bits, signed.
class TAMBER_API VarInteger : public tamber::VarScalar<VarInteger> {
 public:
  using VarScalar::VarScalar;
  void SetIntegerValue(int32_t value) override;
  /// The integer, sign-extended.
  void* GetHandleValue() const override;
  VarInteger& operator=(const VarInteger&) = default;

 protected:
  friend class tamber::VarScalar<VarInteger>;
  VarInteger(const VarInteger&) = default;
};

extern template class tamber::VarScalar<VarInteger>;
