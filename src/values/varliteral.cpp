#include "values/varliteral.h"

#include <bit>

VarLiteral::VarLiteral(const tamber::Name& name, float value, double exact)
    : VarFloat(name, 0), value_(value), exact_(exact) {
  cell_.f = value;
}

Variable* VarLiteral::Clone() const { return new VarLiteral(*this); }

double VarLiteral::Exact() const {
  const bool unchanged = std::bit_cast<uint32_t>(cell_.f) == std::bit_cast<uint32_t>(value_);
  return unchanged ? exact_ : static_cast<double>(cell_.f);
}
