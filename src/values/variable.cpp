#include "values/variable.h"

#include <atomic>
#include <string>

#include "kel/kelascii.h"
#include "values/cellops.h"
#include "values/valuesession.h"
#include "values/varpool.h"

using tamber::Cell;
using tamber::Kind;
using tamber::Name;

namespace {

#ifdef NDEBUG
void CountLive(int) {}
int64_t Live() { return 0; }
#else
std::atomic<int64_t> live_variables{0};
void CountLive(int change) { live_variables.fetch_add(change, std::memory_order_relaxed); }
int64_t Live() { return live_variables.load(std::memory_order_relaxed); }
#endif

KelString SessionKey(uint32_t sessionId, const Variable& variable) {
  return KelString("session/" + std::to_string(sessionId) + "/" +
                   kel::Lowered(variable.GetVarName().View()));
}

}  // namespace

Variable::Variable(enum_TypeId typeId, Kind kind, const Name& name, uint32_t flags)
    : typeId_(typeId), flags_(flags), kind_(kind), name_(name), cell_(tamber::ZeroCell()) {
  CountLive(1);
}

Variable::Variable(const Variable& other)
    : typeId_(other.typeId_),
      flags_(other.flags_ & ~static_cast<uint32_t>(Predefined)),
      kind_(other.kind_),
      name_(other.name_),
      // An object that is its own cell (an enciphered string) is copied by its class.
      cell_(tamber::HoldsObjects(kind_) ? tamber::ZeroCell()
                                        : tamber::CopyCell(kind_, other.cell_)) {
  CountLive(1);
}

Variable::~Variable() {
  tamber::ReleaseCell(kind_, cell_);
  CountLive(-1);
}

void* Variable::operator new(size_t size) { return tamber::PoolAllocate(size); }
void Variable::operator delete(void* memory, size_t size) { tamber::PoolFree(memory, size); }
int64_t Variable::LiveCount() { return Live(); }

void Variable::SetBoolValue(int32_t) {}
void Variable::SetCharValue(char) {}
void Variable::SetIntegerValue(int32_t) {}
void Variable::SetFloatValue(float) {}
void Variable::SetDoubleValue(double) {}
void Variable::SetHandleValue(void*) {}
void Variable::SetStringValue(const char* text, uint32_t len) {
  if (text == nullptr || len == 0) {
    SetStringValue(KelString(text));
  } else {
    SetStringValue(KelString(text, len));
  }
}
void Variable::SetStringValue(const KelString&) {}
int32_t Variable::GetBoolValue() const { return 0; }
char Variable::GetCharValue() const { return 0; }
int32_t Variable::GetIntegerValue() const { return 0; }
float Variable::GetFloatValue() const { return 0; }
double Variable::GetDoubleValue() const { return 0; }
void* Variable::GetHandleValue() const { return nullptr; }
const char* Variable::GetStringValue() const { return ""; }
void Variable::SetVarName(const KelString& name) { name_ = Name(name.View()); }
KelString Variable::GetVarName() const { return KelString(name_.View()); }
Variable::enum_TypeId Variable::GetTypeId() const { return typeId_; }
uint32_t Variable::GetLength() { return 0; }
int32_t Variable::IsCompatible(const Variable* other) const { return IsSameType(other); }
int32_t Variable::IsSameType(const Variable* other) const {
  return other != nullptr && tamber::TypeOf(*this)->IsSame(*tamber::TypeOf(*other));
}
Variable* Variable::Dereference() const { return nullptr; }
int32_t Variable::Assign(Variable*) { return 0; }
KelString Variable::GetHandleName() const { return KelString(); }
uint32_t Variable::GetElementCount() const { return 0; }
int32_t Variable::IsArray() const { return 0; }
Variable* Variable::GetArrayElement(uint32_t) const { return nullptr; }
int32_t Variable::AddArrayElement(Variable*) { return 0; }
void Variable::DeleteArrayElement(uint32_t) {}
Variable* Variable::RemoveArrayElement(uint32_t) { return nullptr; }
void Variable::SwapArrayElements(uint32_t, uint32_t) {}
const Variable* Variable::GetArrayElementType() const { return nullptr; }
void Variable::AdjustArraySize(int32_t) {}
void Variable::SetArraySize(uint32_t) {}
int32_t Variable::IsStruct() const { return 0; }
void Variable::SetStructName(const KelString&) {}
KelString Variable::GetStructName() const { return KelString(); }
uint32_t Variable::GetStructElementIndex(const KelString&) const { return 0; }
Variable* Variable::GetStructElement(uint32_t) const { return nullptr; }
Variable* Variable::GetStructElement(const KelString&) const { return nullptr; }
int32_t Variable::AddStructElement(Variable*, int32_t) { return 0; }
void Variable::Dump(KelString&, const KelString&) const {}
void Variable::DumpValue(KelString&, const KelString&) const {}
void Variable::DumpType(KelString&, const KelString&, int32_t) const {}

bool Variable::operator<(const Variable& other) const {
  return kel::CompareNoCase(name_.View(), other.name_.View()) < 0;
}
bool Variable::operator>(const Variable& other) const { return other < *this; }
bool Variable::operator==(const Variable& other) const { return name_.Equals(other.name_); }

Variable& Variable::operator=(const Variable& other) {
  if (this != &other) Assign(const_cast<Variable*>(&other));  // only looked at
  return *this;
}

uint32_t Variable::GetVarFlags() const {
  const Variable* target = Dereference();
  return target != nullptr ? target->flags_ : flags_;
}

void Variable::SetVarFlags(uint32_t flags) {
  Variable* target = Dereference();
  (target != nullptr ? target : this)->flags_ = flags;
}

Variable* Variable::Duplicate() {
  ++holders_;
  return this;
}

void Variable::Delete(Variable* variable) {
  if (variable != nullptr && --variable->holders_ < 0) delete variable;
}

void Variable::StoreToSession(uint32_t sessionId, SessionStore* store) {
  if (store != nullptr) StoreToSession(SessionKey(sessionId, *this), store);
}

void Variable::LoadFromSession(uint32_t sessionId, SessionStore* store) {
  if (store != nullptr) LoadFromSession(SessionKey(sessionId, *this), store);
}

void Variable::StoreToSession(const KelString& key, SessionStore* store) {
  if (store != nullptr) tamber::StoreValue(*this, key.View(), *store);
}

void Variable::LoadFromSession(const KelString& key, SessionStore* store) {
  if (store != nullptr) tamber::LoadValue(*this, key.View(), *store);
}
