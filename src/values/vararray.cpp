#include "values/vararray.h"

#include "values/cellops.h"
#include "values/store.h"
#include "values/valuedump.h"
#include "values/varstring.h"
#include "values/varstruct.h"

using tamber::ArrayData;
using tamber::Attempt;
using tamber::Kind;
using tamber::Name;
using tamber::PlaceOf;
using tamber::Stored;
using tamber::TypeDesc;
using tamber::TypeRef;
using tamber::Whole;

namespace {

TypeRef StructTypeOf(const Variable* prototype) {
  if (prototype != nullptr && tamber::KindOf(*prototype) == Kind::Struct) {
    return tamber::TypeLike(*prototype);
  }
  return TypeDesc::StructOf(tamber::StructLayout::Make(Name(), {}));
}

/// Whether an element of `type` may hold the variable itself, and not just its value.
bool CanBeElement(const Variable& variable, const TypeDesc& type) {
  const TypeDesc& own = *tamber::TypeOf(variable);
  if (own.GetKind() != type.GetKind() || !type.IsSame(own)) return false;
  return type.GetKind() != Kind::Struct || own.Layout().Get() == type.Layout().Get();
}

}  // namespace

VarArray::VarArray(const KelString& name, uint32_t flags)
    : VarArray(TypeDesc::Of(Kind::Array), Name(name.View()), flags) {}

VarArray::VarArray(Kind element, const Name& name, uint32_t flags)
    : VarArray(TypeDesc::ArrayOf(TypeDesc::Of(element)), name, flags) {}

VarArray::~VarArray() { Delete(prototype_); }

Variable* VarArray::Clone() const { return new VarArray(*this); }

int32_t VarArray::IsCompatible(const Variable* other) const {
  return other != nullptr && type_->Accepts(*tamber::TypeOf(*other));
}

int32_t VarArray::Assign(Variable* source) { return tamber::AssignVariable(*this, source); }

uint32_t VarArray::GetElementCount() const { return cell_.a != nullptr ? cell_.a->Count() : 0; }
int32_t VarArray::IsArray() const { return 1; }

const TypeRef& VarArray::ElementType() const {
  return type_->Element() || cell_.a == nullptr ? type_->Element() : cell_.a->ElementType();
}

/// The elements, safe to change.
ArrayData* VarArray::Own() { return tamber::Unshare(cell_.a, type_->Element()); }

Variable* VarArray::GetArrayElement(uint32_t index) const {
  // Giving an element an object of its own changes no value: it is const to whoever looks at
  // values.
  Whole whole(const_cast<VarArray&>(*this));
  return whole.HoldElement(static_cast<int32_t>(index)) == Stored::Done ? whole.Object() : nullptr;
}

int32_t VarArray::AddArrayElement(Variable* element) {
  if (element == nullptr) return 0;
  bool added = false;
  Attempt([&] { added = Append(element); });
  return added;
}

bool VarArray::Append(Variable* element) {
  const TypeRef& type = ElementType();
  // A name for another variable, or a variable that others hold, is added by value.
  const bool byValue = element == this || element->Dereference() != nullptr ||
                       tamber::VariableAccess::Holders(*element) > 0;
  if (!byValue && (!type || CanBeElement(*element, *type))) {
    AppendObject(element);
    return true;
  }
  if (type) {
    if (tamber::Append(PlaceOf(*this), *tamber::TypeOf(*element), *tamber::CellOf(*element)) !=
        Stored::Done) {
      return false;
    }
  } else {
    AppendObject(element->Clone());
  }
  // Its own holder is not the caller's to give.
  if (element != this || tamber::VariableAccess::Holders(*this) > 0) Delete(element);
  return true;
}

/// Takes the variable over as an element; throws with the variable still the caller's.
void VarArray::AppendObject(Variable* element) {
  Own()->AppendBox(element);
  element->SetOwnName(Name());
  element->SetVarFlags(0);
}

void VarArray::DeleteArrayElement(uint32_t index) {
  Attempt([&] {
    if (!Has(index)) return;
    ArrayData* array = Own();
    tamber::ReleaseCell(array->StorageKind(), array->Remove(index - 1));
  });
}

Variable* VarArray::RemoveArrayElement(uint32_t index) {
  Variable* element = nullptr;
  if (Has(index)) Attempt([&] { element = Own()->RemoveBox(index - 1); });
  return element;
}

void VarArray::SwapArrayElements(uint32_t first, uint32_t second) {
  if (Has(first) && Has(second)) Attempt([&] { Own()->Swap(first - 1, second - 1); });
}

const Variable* VarArray::GetArrayElementType() const {
  const TypeRef& type = ElementType();
  if (prototypeType_.Get() != type.Get() || (type && prototype_ == nullptr)) {
    Variable* fresh = nullptr;
    Attempt([&] {
      if (type) fresh = tamber::MakeVariable(type, Name());
    });
    Delete(prototype_);
    prototype_ = fresh;
    prototypeType_ = type;
  }
  return prototype_;
}

void VarArray::AdjustArraySize(int32_t delta) {
  // Without memory the array stays as it is; running code calls Resize itself and reports it.
  static_cast<void>(tamber::Resize(PlaceOf(*this), delta));
}

void VarArray::SetArraySize(uint32_t size) {
  static_cast<void>(tamber::Resize(PlaceOf(*this), int64_t{size} - int64_t{GetElementCount()}));
}

void VarArray::Dump(KelString& out, const KelString& indent) const {
  tamber::DumpVariable(out.Str(), *this, indent.View());
}

void VarArray::DumpValue(KelString& out, const KelString& indent) const {
  tamber::DumpVariableValue(out.Str(), *this, indent.View());
}

void VarArray::DumpType(KelString& out, const KelString&, int32_t) const { out += type_->Word(); }

VarStructArray::VarStructArray(const Variable* structPrototype, const KelString& name,
                               uint32_t flags)
    : VarTypedArray(TypeDesc::ArrayOf(StructTypeOf(structPrototype)), Name(name.View()), flags) {}
