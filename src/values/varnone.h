#pragma once

#include "values/variable.h"

/// No value: what a procedure without a result returns.
class TAMBER_API VarNone : public Variable {
 public:
  VarNone(const KelString& name, uint32_t flags) : VarNone(tamber::Name(name.View()), flags) {}
  VarNone(const tamber::Name& name, uint32_t flags)
      : Variable(None, tamber::Kind::None, name, flags) {}
  Variable* Clone() const override;
  void Dump(KelString& out, const KelString& indent) const override;
  void DumpValue(KelString& out, const KelString& indent) const override;
  void DumpType(KelString& out, const KelString& indent, int32_t reserved) const override;
  VarNone& operator=(const VarNone&) = default;

 protected:
  VarNone(const VarNone&) = default;
};
