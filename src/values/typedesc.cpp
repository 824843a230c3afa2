#include "values/typedesc.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <new>
#include <string_view>
#include <utility>

#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/structdata.h"

namespace tamber {

namespace {

constexpr size_t kKindCount = static_cast<size_t>(Kind::Any) + 1;
constexpr size_t At(Kind kind) { return static_cast<size_t>(kind); }

/// A set of type ids.
class IdSet {
 public:
  constexpr IdSet(std::initializer_list<int> ids) {
    for (const int id : ids) bits_ |= 1U << id;
  }
  constexpr bool Has(int32_t id) const { return ((bits_ >> id) & 1U) != 0; }

 private:
  uint32_t bits_ = 0;
};

struct KindRow {
  int32_t typeId;
  std::string_view word;
  IdSet also;  // type ids that a value of this kind takes besides its own
};

/// Indexed by Kind. The lists are not symmetrical, and must not be: a boolean takes no float,
/// though a float takes a boolean; an integer takes a handle, a float does not.
constexpr std::array<KindRow, kKindCount> kRows{{
    {0, "none", {}},
    {2, "bool", {1, 11, 3, 4}},
    {3, "char", {1, 11, 2, 4, 7}},
    {4, "integer", {1, 11, 2, 3, 5, 6, 8}},
    {5, "float", {1, 11, 2, 3, 4, 6}},
    {6, "double", {1, 11, 2, 3, 4, 5}},
    {7, "string", {1, 11, 3}},
    {8, "varhandle", {1, 11, 4, 8}},
    {9, "struct", {}},
    {10, "array", {}},
    {7, "estring", {1, 11, 3}},
    {1, "any", {}},
}};

const KindRow& RowOf(Kind kind) { return kRows[At(kind)]; }

constexpr uint32_t kLinearMembers = 6;

}  // namespace

struct TypeDesc::Common {
  std::array<TypeRef, kKindCount> plain;
  std::array<TypeRef, kKindCount> arrays;

  Common() {
    for (size_t i = 0; i < kKindCount; ++i) {
      auto* type = new TypeDesc(static_cast<Kind>(i));
      if (type->kind_ == Kind::Handle) type->handleName_ = Name(RowOf(Kind::Handle).word);
      type->KeepForever();
      plain[i] = TypeRef::Adopt(type);
    }
    for (size_t i = 0; i < kKindCount; ++i) {
      auto* type = new TypeDesc(Kind::Array);
      type->element_ = plain[i];
      type->KeepForever();
      arrays[i] = TypeRef::Adopt(type);
    }
  }

  /// Never destroyed: values in static objects of a host may outlive any order of destruction.
  static const Common& Get() {
    static const Common* const common = new Common;
    return *common;
  }
};

void TypeDesc::Destroy(const SharedCount* object) { delete static_cast<const TypeDesc*>(object); }

const TypeRef& TypeDesc::Of(Kind kind) { return Common::Get().plain[At(kind)]; }

TypeRef TypeDesc::ArrayOf(const TypeRef& element) {
  if (!element) return Of(Kind::Array);
  const Common& common = Common::Get();
  const size_t kind = At(element->kind_);
  if (element.Get() == common.plain[kind].Get()) return common.arrays[kind];
  auto* type = new TypeDesc(Kind::Array);
  type->element_ = element;
  return TypeRef::Adopt(type);
}

TypeRef TypeDesc::HandleOf(const Name& handleTypeName) {
  const TypeRef& plain = Of(Kind::Handle);
  if (handleTypeName.View() == plain->handleName_.View()) return plain;
  auto* type = new TypeDesc(Kind::Handle);
  type->handleName_ = handleTypeName;
  return TypeRef::Adopt(type);
}

TypeRef TypeDesc::StructOf(const Ref<StructLayout>& layout) {
  auto* type = new TypeDesc(Kind::Struct);
  type->layout_ = layout;
  return TypeRef::Adopt(type);
}

int32_t TypeDesc::TypeId() const { return RowOf(kind_).typeId; }

std::string TypeDesc::Word() const {
  switch (kind_) {
    case Kind::Handle:
      return std::string(handleName_.View());
    case Kind::Struct:
      return "struct " + std::string(layout_ ? layout_->GetName().View() : std::string_view());
    case Kind::Array:
      if (element_) return element_->Word() + "[]";
      break;
    default:
      break;
  }
  return std::string(RowOf(kind_).word);
}

std::string MismatchText(const TypeDesc& target, const TypeDesc& value) {
  std::string text = "the target is of type " + target.Word() + ", the value " +
                     (value.GetKind() == Kind::None ? "is none" : "of type " + value.Word());
  if (target.GetKind() == Kind::String && IsNumeric(value.GetKind()))
    text += "; a number becomes a string where it is added to one: \"\" + 5";
  if (target.IsArray() && target.Element() && target.Element()->Accepts(value))
    text += "; an element is appended by \"<<=\"";
  return text;
}

bool TypeDesc::IsSame(const TypeDesc& other) const {
  if (this == &other) return true;
  if (TypeId() != other.TypeId()) return false;
  switch (kind_) {
    case Kind::Handle:
      return handleName_.Equals(other.handleName_);
    case Kind::Struct:
      if (!layout_ || !other.layout_) return !layout_ && !other.layout_;
      return layout_->GetName().Equals(other.layout_->GetName());
    case Kind::Array:
      if (!element_ || !other.element_) return !element_ && !other.element_;
      return element_->IsSame(*other.element_);
    default:
      return true;
  }
}

bool TypeDesc::Accepts(const TypeDesc& source) const {
  if (kind_ == Kind::Any || IsSame(source)) return true;
  if (kind_ == Kind::Array) return source.IsArray() && (!element_ || !source.element_);
  if (source.IsArray()) {
    return TypeId() == RowOf(Kind::String).typeId && source.element_ &&
           source.element_->kind_ == Kind::Char;
  }
  return RowOf(kind_).also.Has(source.TypeId());
}

void StructLayout::Destroy(const SharedCount* object) {
  delete static_cast<const StructLayout*>(object);
}

StructLayout::StructLayout(const Name& name, std::vector<Member> members)
    : name_(name), members_(std::move(members)) {
  Measure();
  if (members_.size() <= kLinearMembers) return;
  size_t size = 16;
  while (size < members_.size() * 2) size *= 2;
  index_.assign(size, -1);
  for (size_t i = 0; i < members_.size(); ++i) {
    if (Find(members_[i].name.View()) >= 0) continue;  // the first of a name is the one found
    size_t at = members_[i].name.Hash() & (size - 1);
    while (index_[at] >= 0) at = (at + 1) & (size - 1);
    index_[at] = static_cast<int32_t>(i);
  }
}

void StructLayout::Measure() {
  for (const Member& member : members_) {
    const TypeDesc& inner =
        member.type->IsArray() && member.type->Element() ? *member.type->Element() : *member.type;
    ++allMembers_;
    if (inner.GetKind() != Kind::Struct || !inner.Layout()) continue;
    const StructLayout& layout = *inner.Layout();
    depth_ = std::max(depth_, layout.depth_ + 1);
    if (member.type->IsArray() && member.arraySize == 0) continue;
    holdsStructs_ = true;
    allMembers_ += layout.allMembers_;
  }
}

Ref<StructLayout> StructLayout::Make(const Name& name, std::vector<Member> members) {
  auto layout = Ref<StructLayout>::Adopt(new StructLayout(name, std::move(members)));
  if (layout->depth_ > kMaxDepth || layout->allMembers_ > kMaxMembers) throw std::bad_alloc();
  return layout;
}

StructLayout::~StructLayout() {
  for (const Initial& initial : initial_) {
    ReleaseCell(members_[initial.member].type->GetKind(), initial.value);
  }
}

Ref<StructLayout> StructLayout::MakeLike(const StructData& values) {
  const StructLayout& old = *values.Layout();
  auto layout = Ref<StructLayout>::Adopt(new StructLayout(old.name_, old.members_));
  std::vector<Initial>& initial = const_cast<StructLayout&>(*layout).initial_;
  bool alike = true;
  for (uint32_t i = 0; i < values.Count(); ++i) {
    const Kind kind = values.MemberKind(i);
    const OwnedCell before(kind, old.NewMember(i));
    const OwnedCell empty(kind, layout->EmptyMember(i));
    alike = alike && IsSameCell(kind, before.cell, values.Peek(i));
    if (IsSameCell(kind, empty.cell, values.Peek(i))) continue;
    initial.push_back({i, ZeroCell()});
    initial.back().value = SeparateCell(kind, values.Peek(i));
  }
  return alike ? values.Layout() : layout;
}

Cell StructLayout::EmptyMember(uint32_t member) const {
  const Member& description = members_[member];
  OwnedCell cell(description.type->GetKind(), DefaultCell(*description.type));
  if (description.arraySize > 0 && description.type->IsArray()) {
    Unshare(cell.cell.a, description.type->Element())->Resize(description.arraySize);
  }
  return cell.Take();
}

Cell StructLayout::NewMember(uint32_t member) const {
  for (const Initial& initial : initial_) {
    if (initial.member == member)
      return SeparateCell(members_[member].type->GetKind(), initial.value);
  }
  return EmptyMember(member);
}

int32_t StructLayout::Find(std::string_view member) const {
  if (index_.empty()) {
    for (size_t i = 0; i < members_.size() && i < kLinearMembers; ++i) {
      if (members_[i].name.Equals(member)) return static_cast<int32_t>(i);
    }
    return -1;
  }
  const size_t mask = index_.size() - 1;
  for (size_t at = Name::HashOf(member) & mask; index_[at] >= 0; at = (at + 1) & mask) {
    if (members_[static_cast<size_t>(index_[at])].name.Equals(member)) return index_[at];
  }
  return -1;
}

}  // namespace tamber
