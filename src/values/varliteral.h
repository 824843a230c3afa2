#pragma once

#include "values/varfloat.h"

/// A constant of script type "float" that was made of float literals: a float to whoever reads it,
/// and the double that the author wrote to the compiler where a double is wanted.
class VarLiteral final : public VarFloat {
 public:
  VarLiteral(const tamber::Name& name, float value, double exact);

  Variable* Clone() const override;
  /// The double. Whoever stored another float has changed this, too.
  double Exact() const;
  VarLiteral& operator=(const VarLiteral&) = default;

 private:
  VarLiteral(const VarLiteral&) = default;

  float value_;
  double exact_;
};
