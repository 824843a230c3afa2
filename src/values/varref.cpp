#include "values/varref.h"

#include "values/varnone.h"

using tamber::Name;

namespace {

/// What a new reference to `target` refers to, with a holder for the reference.
Variable* FinalTarget(const Variable* target) {
  if (target == nullptr) return new VarNone(Name(), 0);
  Variable* behind = target->Dereference();
  // The interface takes constant targets, yet a reference is there to change what it refers to.
  return (behind != nullptr ? behind : const_cast<Variable*>(target))->Duplicate();
}

}  // namespace

// The kind says nothing of the target, whose cell running code reaches by looking through.
VarReference::VarReference(const Name& name, const Variable* target)
    : Variable(None, tamber::Kind::None, name, 0) {
  isReference_ = true;
  cell_.v = FinalTarget(target);
}

VarReference::VarReference(const KelString& name, const Variable* target)
    : VarReference(Name(name.View()), target) {}

VarReference::VarReference(const Variable* target) : VarReference(Name(), target) {}

VarReference::VarReference(const VarReference& other) : VarReference(other.OwnName(), &other) {}

VarReference::~VarReference() { Delete(cell_.v); }

Variable* VarReference::Dereference() const { return cell_.v; }

Variable* VarReference::Clone() const { return cell_.v->Clone(); }

void VarReference::SetBoolValue(int32_t value) { cell_.v->SetBoolValue(value); }

void VarReference::SetCharValue(char value) { cell_.v->SetCharValue(value); }

void VarReference::SetIntegerValue(int32_t value) { cell_.v->SetIntegerValue(value); }

void VarReference::SetFloatValue(float value) { cell_.v->SetFloatValue(value); }

void VarReference::SetDoubleValue(double value) { cell_.v->SetDoubleValue(value); }

void VarReference::SetHandleValue(void* value) { cell_.v->SetHandleValue(value); }

void VarReference::SetStringValue(const char* text, uint32_t len) {
  cell_.v->SetStringValue(text, len);
}

void VarReference::SetStringValue(const KelString& text) { cell_.v->SetStringValue(text); }

int32_t VarReference::GetBoolValue() const { return cell_.v->GetBoolValue(); }

char VarReference::GetCharValue() const { return cell_.v->GetCharValue(); }

int32_t VarReference::GetIntegerValue() const { return cell_.v->GetIntegerValue(); }

float VarReference::GetFloatValue() const { return cell_.v->GetFloatValue(); }

double VarReference::GetDoubleValue() const { return cell_.v->GetDoubleValue(); }

void* VarReference::GetHandleValue() const { return cell_.v->GetHandleValue(); }

const char* VarReference::GetStringValue() const { return cell_.v->GetStringValue(); }

void VarReference::SetVarName(const KelString& name) { cell_.v->SetVarName(name); }

KelString VarReference::GetVarName() const { return cell_.v->GetVarName(); }

Variable::enum_TypeId VarReference::GetTypeId() const { return cell_.v->GetTypeId(); }

uint32_t VarReference::GetLength() { return cell_.v->GetLength(); }

int32_t VarReference::IsCompatible(const Variable* other) const {
  return cell_.v->IsCompatible(other);
}

int32_t VarReference::IsSameType(const Variable* other) const { return cell_.v->IsSameType(other); }

int32_t VarReference::Assign(Variable* source) { return cell_.v->Assign(source); }

KelString VarReference::GetHandleName() const { return cell_.v->GetHandleName(); }

uint32_t VarReference::GetElementCount() const { return cell_.v->GetElementCount(); }

int32_t VarReference::IsArray() const { return cell_.v->IsArray(); }

Variable* VarReference::GetArrayElement(uint32_t index) const {
  return cell_.v->GetArrayElement(index);
}

int32_t VarReference::AddArrayElement(Variable* element) {
  return cell_.v->AddArrayElement(element);
}

void VarReference::DeleteArrayElement(uint32_t index) { cell_.v->DeleteArrayElement(index); }

Variable* VarReference::RemoveArrayElement(uint32_t index) {
  return cell_.v->RemoveArrayElement(index);
}

void VarReference::SwapArrayElements(uint32_t first, uint32_t second) {
  cell_.v->SwapArrayElements(first, second);
}

const Variable* VarReference::GetArrayElementType() const { return cell_.v->GetArrayElementType(); }

void VarReference::AdjustArraySize(int32_t delta) { cell_.v->AdjustArraySize(delta); }

void VarReference::SetArraySize(uint32_t size) { cell_.v->SetArraySize(size); }

int32_t VarReference::IsStruct() const { return cell_.v->IsStruct(); }

void VarReference::SetStructName(const KelString& name) { cell_.v->SetStructName(name); }

KelString VarReference::GetStructName() const { return cell_.v->GetStructName(); }

uint32_t VarReference::GetStructElementIndex(const KelString& name) const {
  return cell_.v->GetStructElementIndex(name);
}

Variable* VarReference::GetStructElement(uint32_t index) const {
  return cell_.v->GetStructElement(index);
}

Variable* VarReference::GetStructElement(const KelString& name) const {
  return cell_.v->GetStructElement(name);
}

int32_t VarReference::AddStructElement(Variable* member, int32_t unique) {
  return cell_.v->AddStructElement(member, unique);
}

void VarReference::Dump(KelString& out, const KelString& indent) const {
  cell_.v->Dump(out, indent);
}

void VarReference::DumpValue(KelString& out, const KelString& indent) const {
  cell_.v->DumpValue(out, indent);
}

void VarReference::DumpType(KelString& out, const KelString& indent, int32_t reserved) const {
  cell_.v->DumpType(out, indent, reserved);
}

void VarReference::StoreToSession(const KelString& key, SessionStore* store) {
  cell_.v->StoreToSession(key, store);
}

void VarReference::LoadFromSession(const KelString& key, SessionStore* store) {
  cell_.v->LoadFromSession(key, store);
}
