#pragma once

#include "values/variable.h"

/// Refers to another variable and behaves in every respect like it.
///
/// References never chain: one to a reference refers to what that one refers to. A reference holds
/// its target, so an array element that is removed lives on as long as a reference to it. Lists
/// find a reference under the name it was made with; GetVarName answers with the target's. A null
/// target makes a reference to a VarNone of its own.
class TAMBER_API VarReference : public Variable {
 public:
  VarReference(const KelString& name, const Variable* target);
  VarReference(const tamber::Name& name, const Variable* target);
  explicit VarReference(const Variable* target);
  ~VarReference() override;
  /// Assigns to the target.
  VarReference& operator=(const VarReference& other) {
    Variable::operator=(other);
    return *this;
  }

  Variable* Clone() const override;
  void SetBoolValue(int32_t value) override;
  void SetCharValue(char value) override;
  void SetIntegerValue(int32_t value) override;
  void SetFloatValue(float value) override;
  void SetDoubleValue(double value) override;
  void SetHandleValue(void* value) override;
  void SetStringValue(const char* text, uint32_t len) override;
  void SetStringValue(const KelString& text) override;
  int32_t GetBoolValue() const override;
  char GetCharValue() const override;
  int32_t GetIntegerValue() const override;
  float GetFloatValue() const override;
  double GetDoubleValue() const override;
  void* GetHandleValue() const override;
  const char* GetStringValue() const override;
  void SetVarName(const KelString& name) override;
  KelString GetVarName() const override;
  enum_TypeId GetTypeId() const override;
  uint32_t GetLength() override;
  int32_t IsCompatible(const Variable* other) const override;
  int32_t IsSameType(const Variable* other) const override;
  Variable* Dereference() const override;
  int32_t Assign(Variable* source) override;
  KelString GetHandleName() const override;
  uint32_t GetElementCount() const override;
  int32_t IsArray() const override;
  Variable* GetArrayElement(uint32_t index) const override;
  int32_t AddArrayElement(Variable* element) override;
  void DeleteArrayElement(uint32_t index) override;
  Variable* RemoveArrayElement(uint32_t index) override;
  void SwapArrayElements(uint32_t first, uint32_t second) override;
  const Variable* GetArrayElementType() const override;
  void AdjustArraySize(int32_t delta) override;
  void SetArraySize(uint32_t size) override;
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

 protected:
  VarReference(const VarReference& other);

 private:
  void StoreToSession(const KelString& key, SessionStore* store) override;
  void LoadFromSession(const KelString& key, SessionStore* store) override;
};
