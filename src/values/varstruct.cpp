#include "values/varstruct.h"

#include <utility>
#include <vector>

#include "values/cellops.h"
#include "values/store.h"
#include "values/valuedump.h"
#include "values/varstring.h"

using tamber::Kind;
using tamber::Name;
using tamber::OwnedCell;
using tamber::StructData;
using tamber::StructLayout;
using tamber::TypeDesc;
using tamber::TypeRef;

namespace {

TypeRef EmptyType() { return TypeDesc::StructOf(StructLayout::Make(Name(), {})); }

}  // namespace

VarStruct::VarStruct(const KelString& name, uint32_t flags)
    : VarStruct(EmptyType(), Name(name.View()), flags) {}

VarStruct::VarStruct(const TypeRef& type, const Name& name, uint32_t flags)
    : Variable(Struct, Kind::Struct, name, flags), type_(type) {
  cell_.st = StructData::New(type->Layout());
}

VarStruct::VarStruct(const TypeRef& type, const Name& name, StructData* data)
    : Variable(Struct, Kind::Struct, name, 0), type_(type) {
  cell_.st = data;
}

Variable* VarStruct::Clone() const { return new VarStruct(*this); }

int32_t VarStruct::IsCompatible(const Variable* other) const {
  return other != nullptr && type_->Accepts(*tamber::TypeOf(*other));
}

int32_t VarStruct::Assign(Variable* source) { return tamber::AssignVariable(*this, source); }

uint32_t VarStruct::GetElementCount() const { return cell_.st->Count(); }
int32_t VarStruct::IsStruct() const { return 1; }

KelString VarStruct::GetStructName() const {
  return KelString(cell_.st->Layout()->GetName().View());
}

void VarStruct::SetStructName(const KelString& name) {
  tamber::Attempt([&] {
    Rebuild(StructLayout::Make(Name(name.View()), cell_.st->Layout()->Members()), nullptr);
  });
}

uint32_t VarStruct::GetStructElementIndex(const KelString& name) const {
  return static_cast<uint32_t>(cell_.st->Layout()->Find(name.View()) + 1);
}

Variable* VarStruct::GetStructElement(uint32_t index) const {
  if (index == 0 || index > cell_.st->Count()) return nullptr;
  // Giving a member an object of its own changes no value: it is const to whoever looks at values.
  tamber::Whole whole(const_cast<VarStruct&>(*this));
  return whole.HoldMember(index - 1) == tamber::Stored::Done ? whole.Object() : nullptr;
}

Variable* VarStruct::GetStructElement(const KelString& name) const {
  return GetStructElement(GetStructElementIndex(name));
}

int32_t VarStruct::AddStructElement(Variable* member, int32_t unique) {
  if (member == nullptr || member == this) return 0;
  if (unique != 0 && cell_.st->Layout()->Find(member->OwnName().View()) >= 0) return 0;
  return tamber::Attempt([&] {
    Variable* added = member;
    // A member is a value: neither a name for another variable nor one that others hold, which this
    // structure could be a part of.
    if (member->Dereference() != nullptr || tamber::VariableAccess::Holders(*member) > 0) {
      added = member->Clone();
      added->SetOwnName(member->OwnName());
    }
    std::vector<StructLayout::Member> members = cell_.st->Layout()->Members();
    members.push_back({added->OwnName(), tamber::TypeOf(*added), 0});
    try {
      Rebuild(StructLayout::Make(type_->Layout()->GetName(), std::move(members)), added);
    } catch (...) {
      if (added != member) Delete(added);
      throw;
    }
    if (added != member) Delete(member);
  });
}

/// Moves the members to a new description; `added` becomes the object of the last one.
void VarStruct::Rebuild(const tamber::Ref<StructLayout>& layout, Variable* added) {
  TypeRef type = TypeDesc::StructOf(layout);
  StructData* old = tamber::Unshare(cell_.st);
  OwnedCell fresh(Kind::Struct, tamber::ZeroCell());
  fresh.cell.st = StructData::New(layout);
  if (added != nullptr) fresh.cell.st->SetBox(fresh.cell.st->Count() - 1, added);
  fresh.cell.st->TakeMembers(*old);
  tamber::Release(old);
  cell_.st = fresh.Take().st;
  type_ = std::move(type);
}

void VarStruct::Dump(KelString& out, const KelString& indent) const {
  tamber::DumpVariable(out.Str(), *this, indent.View());
}

void VarStruct::DumpValue(KelString& out, const KelString& indent) const {
  tamber::DumpVariableValue(out.Str(), *this, indent.View());
}

void VarStruct::DumpType(KelString& out, const KelString&, int32_t) const { out += type_->Word(); }
