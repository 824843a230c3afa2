#pragma once

#include "values/arraydata.h"
#include "values/typedesc.h"
#include "values/variable.h"

/// Script type "array" and base of the typed arrays: elements counted from 1.
///
/// The generic array takes any elements; assigned from a typed array it takes on that element type.
/// Elements of a typed array always are of its type: whatever is added is converted.
class TAMBER_API VarArray : public Variable {
 public:
  VarArray(const KelString& name, uint32_t flags);
  VarArray(const tamber::TypeRef& type, const tamber::Name& name, uint32_t flags)
      : Variable(Array, tamber::Kind::Array, name, flags), type_(type) {}
  ~VarArray() override;
  VarArray& operator=(const VarArray& other) {
    Variable::operator=(other);
    return *this;
  }

  Variable* Clone() const override;
  int32_t IsCompatible(const Variable* other) const override;
  int32_t Assign(Variable* source) override;
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
  void Dump(KelString& out, const KelString& indent) const override;
  void DumpValue(KelString& out, const KelString& indent) const override;
  void DumpType(KelString& out, const KelString& indent, int32_t reserved) const override;

  const tamber::TypeRef& Type() const { return type_; }
  /// What the elements are: the declared type, or the one that a generic array took on; may be
  /// null.
  const tamber::TypeRef& ElementType() const;

 protected:
  /// Elements of this kind. Hosts make typed arrays with it: they cannot link with the types' own
  /// functions.
  VarArray(tamber::Kind element, const tamber::Name& name, uint32_t flags);
  VarArray(const VarArray& other) : Variable(other), type_(other.type_) {}

 private:
  bool Has(uint32_t index) const { return index > 0 && index <= GetElementCount(); }
  TAMBER_LOCAL tamber::ArrayData* Own();
  TAMBER_LOCAL bool Append(Variable* element);
  TAMBER_LOCAL void AppendObject(Variable* element);

  tamber::TypeRef type_;
  mutable Variable* prototype_ = nullptr;  // made when somebody asks; owned
  mutable tamber::TypeRef prototypeType_;
};

namespace tamber {

/// Body of the typed arrays whose element type needs no more words than its kind.
template <class Self, Kind kElement>
class TAMBER_API VarTypedArray : public VarArray {
 public:
  VarTypedArray(const KelString& name, uint32_t flags) : VarTypedArray(Name(name.View()), flags) {}
  VarTypedArray(const Name& name, uint32_t flags) : VarArray(kElement, name, flags) {}
  /// `type` is an array type with elements of this kind.
  VarTypedArray(const TypeRef& type, const Name& name, uint32_t flags)
      : VarArray(type, name, flags) {}
  Variable* Clone() const override { return new Self(static_cast<const Self&>(*this)); }
  VarTypedArray& operator=(const VarTypedArray&) = default;

 protected:
  VarTypedArray(const VarTypedArray&) = default;
};

}  // namespace tamber

class TAMBER_API VarBooleanArray
    : public tamber::VarTypedArray<VarBooleanArray, tamber::Kind::Bool> {
 public:
  using VarTypedArray::VarTypedArray;
  VarBooleanArray& operator=(const VarBooleanArray&) = default;

 protected:
  friend VarTypedArray;
  VarBooleanArray(const VarBooleanArray&) = default;
};

class TAMBER_API VarCharArray : public tamber::VarTypedArray<VarCharArray, tamber::Kind::Char> {
 public:
  using VarTypedArray::VarTypedArray;
  VarCharArray& operator=(const VarCharArray&) = default;

 protected:
  friend VarTypedArray;
  VarCharArray(const VarCharArray&) = default;
};

class TAMBER_API VarIntegerArray
    : public tamber::VarTypedArray<VarIntegerArray, tamber::Kind::Int> {
 public:
  using VarTypedArray::VarTypedArray;
  VarIntegerArray& operator=(const VarIntegerArray&) = default;

 protected:
  friend VarTypedArray;
  VarIntegerArray(const VarIntegerArray&) = default;
};

class TAMBER_API VarFloatArray : public tamber::VarTypedArray<VarFloatArray, tamber::Kind::Float> {
 public:
  using VarTypedArray::VarTypedArray;
  VarFloatArray& operator=(const VarFloatArray&) = default;

 protected:
  friend VarTypedArray;
  VarFloatArray(const VarFloatArray&) = default;
};

class TAMBER_API VarDoubleArray
    : public tamber::VarTypedArray<VarDoubleArray, tamber::Kind::Double> {
 public:
  using VarTypedArray::VarTypedArray;
  VarDoubleArray& operator=(const VarDoubleArray&) = default;

 protected:
  friend VarTypedArray;
  VarDoubleArray(const VarDoubleArray&) = default;
};

class TAMBER_API VarStringArray
    : public tamber::VarTypedArray<VarStringArray, tamber::Kind::String> {
 public:
  using VarTypedArray::VarTypedArray;
  VarStringArray& operator=(const VarStringArray&) = default;

 protected:
  friend VarTypedArray;
  VarStringArray(const VarStringArray&) = default;
};

class TAMBER_API VarEStringArray
    : public tamber::VarTypedArray<VarEStringArray, tamber::Kind::EString> {
 public:
  using VarTypedArray::VarTypedArray;
  VarEStringArray& operator=(const VarEStringArray&) = default;

 protected:
  friend VarTypedArray;
  VarEStringArray(const VarEStringArray&) = default;
};

class TAMBER_API VarHandleArray
    : public tamber::VarTypedArray<VarHandleArray, tamber::Kind::Handle> {
 public:
  using VarTypedArray::VarTypedArray;
  VarHandleArray& operator=(const VarHandleArray&) = default;

 protected:
  friend VarTypedArray;
  VarHandleArray(const VarHandleArray&) = default;
};

/// An array of structures of one structure type.
class TAMBER_API VarStructArray
    : public tamber::VarTypedArray<VarStructArray, tamber::Kind::Struct> {
 public:
  /// New elements will be like `structPrototype` is now, values included; it is only looked at.
  /// Null or another type makes elements without members.
  VarStructArray(const Variable* structPrototype, const KelString& name, uint32_t flags);
  VarStructArray(const tamber::TypeRef& type, const tamber::Name& name, uint32_t flags)
      : VarTypedArray(type, name, flags) {}
  VarStructArray& operator=(const VarStructArray&) = default;

 protected:
  friend VarTypedArray;
  VarStructArray(const VarStructArray&) = default;
};
