#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "modules/builtin.h"

/// The bodies of the array built-ins. They work on the compact storage of an array and make no
/// element objects. Positions that scripts see count from 1.
namespace tamber {

int32_t ArrayGetSize(ArrayOperand array);
ArrayResult ArraySetSize(Call& call, ArrayOperand array, int32_t size);

ArrayResult ArraySort(Call& call, ArrayOperand array, bool ascending);
ArrayResult ArraySortCase(Call& call, ArrayOperand array, bool ascending, bool caseSensitive);
ArrayResult ArraySortMember(Call& call, ArrayOperand array, std::string_view member,
                            bool ascending);
ArrayResult ArraySortMemberCase(Call& call, ArrayOperand array, std::string_view member,
                                bool ascending, bool caseSensitive);

ArrayResult ArrayRemoveDup(Call& call, ArrayOperand array);
ArrayResult ArrayRemoveDupCase(Call& call, ArrayOperand array, bool caseSensitive);

/// `Value` is std::string_view, double, float or int32_t.
template <class Value>
int32_t ArrayFind(Call& call, ArrayOperand array, Value value, int32_t start);
template <class Value>
int32_t ArrayFindMember(Call& call, ArrayOperand array, std::string_view member, Value value,
                        int32_t start);

/// A further reference to the array that was passed, for a result that is no different from it.
ArrayResult SameArray(const ArrayOperand& array);
/// The same for an argument that the function cannot work on; the failure is reported.
ArrayResult RefusedArray(Call& call, const ArrayOperand& array, std::string_view text);
/// Whether strings are told apart by case when the call does not say: the script's `StrCase`.
bool CaseMatters(Call& call);

/// Finds one member in the structures of an array; the position is looked up once.
class MemberReader {
 public:
  MemberReader(const ArrayOperand& array, std::string_view member);
  bool IsFound() const { return kind_ != Kind::None; }
  /// Of the member as the array's first structure has it.
  Kind GetKind() const { return kind_; }
  /// The member of the element at a 0-based position, borrowed; nothing when that structure, which
  /// a host put there, is made differently.
  std::optional<Cell> Read(uint32_t at) const;

 private:
  const ArrayData& array_;
  std::string_view name_;
  const StructLayout* layout_ = nullptr;
  uint32_t position_ = 0;
  Kind kind_ = Kind::None;
};

}  // namespace tamber
