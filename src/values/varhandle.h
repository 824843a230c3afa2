#pragma once

#include "values/typedesc.h"
#include "values/varordered.h"

/// A handle that a built-in returned: an opaque value and the name of its handle type.
///
/// Passing a handle through an integer keeps its low 32 bits only.
class TAMBER_API VarHandle : public tamber::OrderedVariable {
 public:
  VarHandle(const KelString& name, const KelString& handleTypeName, uint32_t flags);
  /// Of the general type "varhandle".
  VarHandle(const KelString& name, uint32_t flags);
  VarHandle(const tamber::TypeRef& type, const tamber::Name& name, uint32_t flags)
      : OrderedVariable(Handle, tamber::Kind::Handle, name, flags), type_(type) {}

  VarHandle& operator=(const VarHandle& other) {
    Variable::operator=(other);
    return *this;
  }
  Variable* Clone() const override;
  void SetHandleValue(void* value) override;
  int32_t GetBoolValue() const override;
  int32_t GetIntegerValue() const override;
  void* GetHandleValue() const override;
  KelString GetHandleName() const override;

  const tamber::TypeRef& Type() const { return type_; }

 protected:
  VarHandle(const VarHandle&) = default;

 private:
  tamber::TypeRef type_;
};
