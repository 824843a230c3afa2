#pragma once

#include <string>
#include <vector>

#include "values/cell.h"
#include "values/name.h"
#include "values/shared.h"

namespace tamber {

class StructLayout;

class TypeDesc;
using TypeRef = Ref<TypeDesc>;

/// One type of the language: a scalar, a handle type, a structure, an array of one of these.
class TypeDesc final : public Shared<TypeDesc> {
 public:
  /// A scalar type, the generic array (Array), None or Any. Lives as long as the process.
  static const TypeRef& Of(Kind kind);
  /// "element[]". A null element means the generic array.
  static TypeRef ArrayOf(const TypeRef& element);
  static TypeRef HandleOf(const Name& handleTypeName);
  static TypeRef StructOf(const Ref<StructLayout>& layout);

  Kind GetKind() const { return kind_; }
  bool IsArray() const { return kind_ == Kind::Array; }
  /// The element type of an array; null for the generic array and for everything else.
  const TypeRef& Element() const { return element_; }
  const Ref<StructLayout>& Layout() const { return layout_; }
  const Name& HandleName() const { return handleName_; }
  /// The number that `Variable::GetTypeId` returns for values of this type.
  int32_t TypeId() const;
  /// The word that dumps show: "integer", "string[]", "struct Point", a handle's type name.
  std::string Word() const;

  /// What `Variable::IsSameType` answers between values of the two types.
  bool IsSame(const TypeDesc& other) const;
  /// What `Variable::IsCompatible` answers: a value of this type can be assigned from one of
  /// `source`.
  bool Accepts(const TypeDesc& source) const;

 private:
  friend class Shared<TypeDesc>;
  TAMBER_API static void Destroy(const SharedCount* object);
  struct Common;
  explicit TypeDesc(Kind kind) : kind_(kind) {}
  ~TypeDesc() = default;

  Kind kind_;
  TypeRef element_;
  Ref<StructLayout> layout_;
  Name handleName_;
};

/// What is told below the error of a store: the types on both sides.
std::string MismatchText(const TypeDesc& target, const TypeDesc& value);

/// The members of a structure type, shared by all its values.
class StructLayout final : public Shared<StructLayout> {
 public:
  struct Member {
    Name name;
    TypeRef type;
    uint32_t arraySize = 0;  ///< elements that an array member starts with
  };
  /// Structures of structures may be this deep, and hold this many members on all levels together.
  /// Beyond, Make throws std::bad_alloc: a few lines of script could ask for more than any memory,
  /// or for more levels than the native stack can follow.
  static constexpr uint32_t kMaxDepth = 500;
  static constexpr uint64_t kMaxMembers = uint64_t{1} << 20;
  static Ref<StructLayout> Make(const Name& name, std::vector<Member> members);
  /// The layout of `values`, or one like it whose new values begin with these members.
  static Ref<StructLayout> MakeLike(const StructData& values);

  const Name& GetName() const { return name_; }
  const std::vector<Member>& Members() const { return members_; }
  /// 0-based position of a member, -1 when there is none.
  int32_t Find(std::string_view member) const;
  /// Whether a new value holds further structures.
  bool HoldsStructs() const { return holdsStructs_; }
  /// What a member of a new value is, a cell of its kind that the caller owns: the value that the
  /// type was registered with, else its type's empty one.
  Cell NewMember(uint32_t member) const;

 private:
  /// A member that does not begin empty. Threads read it at the same time, so that it is copied
  /// byte by byte and never counted.
  struct Initial {
    uint32_t member;
    Cell value;
  };

  friend class Shared<StructLayout>;
  TAMBER_API static void Destroy(const SharedCount* object);
  StructLayout(const Name& name, std::vector<Member> members);
  ~StructLayout();
  void Measure();
  Cell EmptyMember(uint32_t member) const;

  Name name_;
  std::vector<Member> members_;
  uint32_t depth_ = 1;
  uint64_t allMembers_ = 0;
  bool holdsStructs_ = false;
  std::vector<Initial> initial_;  // in the order of the members
  std::vector<int32_t> index_;    // open addressing by folded hash; -1 is free
};

}  // namespace tamber
