#pragma once

#include "values/cellops.h"
#include "values/varordered.h"

namespace tamber {

/// What sets one numeric class apart; one specialisation beside each class.
template <class Self>
struct ScalarTraits;

/// Body of VarBoolean, VarChar, VarInteger, VarFloat and VarDouble: read as any number, written
/// only as its own type.
template <class Self>
class TAMBER_API VarScalar : public OrderedVariable {
  using Traits = ScalarTraits<Self>;

 public:
  VarScalar(const KelString& name, uint32_t flags) : VarScalar(Name(name.View()), flags) {}
  VarScalar(const Name& name, uint32_t flags)
      : OrderedVariable(Traits::kId, Traits::kKind, name, flags) {}

  Variable* Clone() const override { return new Self(static_cast<const Self&>(*this)); }
  int32_t GetBoolValue() const override { return CellToBool(Traits::kKind, cell_); }
  char GetCharValue() const override { return static_cast<char>(CellToChar(Traits::kKind, cell_)); }
  int32_t GetIntegerValue() const override { return CellToInt(Traits::kKind, cell_); }
  float GetFloatValue() const override { return CellToFloat(Traits::kKind, cell_); }
  double GetDoubleValue() const override { return CellToDouble(Traits::kKind, cell_); }
  VarScalar& operator=(const VarScalar&) = default;

 protected:
  VarScalar(const VarScalar&) = default;
};

}  // namespace tamber
