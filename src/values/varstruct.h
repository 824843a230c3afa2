#pragma once

#include "values/structdata.h"
#include "values/typedesc.h"
#include "values/variable.h"

/// A structure: named members under a structure name.
///
/// Members are reached by 1-based position, in the order of their declaration, or by name.
/// Structures of one script type share the description of their members; adding a member to one
/// makes it a description of its own.
class TAMBER_API VarStruct : public Variable {
 public:
  /// A structure without members and without a structure name.
  VarStruct(const KelString& name, uint32_t flags);
  VarStruct(const tamber::TypeRef& type, const tamber::Name& name, uint32_t flags);
  /// Takes ownership of `data`, whose layout is that of `type`.
  VarStruct(const tamber::TypeRef& type, const tamber::Name& name, tamber::StructData* data);

  VarStruct& operator=(const VarStruct& other) {
    Variable::operator=(other);
    return *this;
  }
  Variable* Clone() const override;
  int32_t IsCompatible(const Variable* other) const override;
  int32_t Assign(Variable* source) override;
  uint32_t GetElementCount() const override;
  int32_t IsStruct() const override;
  void SetStructName(const KelString& name) override;
  KelString GetStructName() const override;
  uint32_t GetStructElementIndex(const KelString& name) const override;
  Variable* GetStructElement(uint32_t index) const override;
  Variable* GetStructElement(const KelString& name) const override;
  int32_t AddStructElement(Variable* member, int32_t unique) override;
  void Dump(KelString& out, const KelString& indent) const override;
  void DumpValue(KelString& out, const KelString& indent) const override;
  void DumpType(KelString& out, const KelString& indent, int32_t reserved) const override;

  const tamber::TypeRef& Type() const { return type_; }

 protected:
  VarStruct(const VarStruct&) = default;

 private:
  TAMBER_LOCAL void Rebuild(const tamber::Ref<tamber::StructLayout>& layout, Variable* added);

  tamber::TypeRef type_;
};
