#pragma once

#include "values/varscalar.h"

class VarChar;

template <>
struct tamber::ScalarTraits<VarChar> {
  static constexpr Kind kKind = Kind::Char;
  static constexpr Variable::enum_TypeId kId = Variable::Char;
};

/// Script type "char": one signed byte.
class TAMBER_API VarChar : public tamber::VarScalar<VarChar> {
 public:
  using VarScalar::VarScalar;
  void SetCharValue(char value) override;
  VarChar& operator=(const VarChar&) = default;

 protected:
  friend class tamber::VarScalar<VarChar>;
  VarChar(const VarChar&) = default;
};

extern template class tamber::VarScalar<VarChar>;
