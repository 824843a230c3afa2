#pragma once

#include "values/varscalar.h"

class VarBoolean;

template <>
struct tamber::ScalarTraits<VarBoolean> {
  static constexpr Kind kKind = Kind::Bool;
  static constexpr Variable::enum_TypeId kId = Variable::Boolean;
};

/// Script type "bool": holds 0 or 1.
class TAMBER_API VarBoolean : public tamber::VarScalar<VarBoolean> {
 public:
  using VarScalar::VarScalar;
  void SetBoolValue(int32_t value) override;
  VarBoolean& operator=(const VarBoolean&) = default;

 protected:
  friend class tamber::VarScalar<VarBoolean>;
  VarBoolean(const VarBoolean&) = default;
};

extern template class tamber::VarScalar<VarBoolean>;
