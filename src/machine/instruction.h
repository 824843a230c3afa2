#pragma once

#include <cstdint>
#include <string_view>

#include "values/cell.h"

namespace tamber {

/// The instructions of running code; machine/opcodes.def describes each.
enum class Op : uint16_t {
#define OP(name, ...) name,
#include "machine/opcodes.def"
#undef OP
};

/// One instruction. Operands b and c also serve as one 32-bit operand.
struct Instr {
  Op op;
  uint16_t a;
  uint16_t b;
  uint16_t c;

  int32_t Wide() const { return static_cast<int32_t>(uint32_t{b} | (uint32_t{c} << 16)); }
  void SetWide(int32_t value) {
    b = static_cast<uint16_t>(static_cast<uint32_t>(value));
    c = static_cast<uint16_t>(static_cast<uint32_t>(value) >> 16);
  }
};
static_assert(sizeof(Instr) == 8);

/// What an instruction does with one of its operands.
enum class Role : uint8_t {
  None,
  Read,     ///< a register; a managed value in it stays with its owner
  Write,    ///< a register that gets a value, its own if the value is managed
  Lend,     ///< a register that gets a value which stays with its owner
  Update,   ///< a register whose own value is changed in place
  Replace,  ///< a local whose old value is released once the new one is there
  Take,     ///< a register whose own value is taken; it stays there when the instruction fails
  Index,    ///< no register: a number, or an index of a table
  Wide,     ///< the upper half of operand b
};

/// What the register of an operand holds, or what its index refers to. A letter at the end says
/// which other operand tells it.
enum class Holds : uint8_t {
  Nothing,
  // kinds of registers
  Bool,
  Char,
  Int,
  Float,
  Double,
  Handle,
  String,
  Struct,
  Array,
  Array8,   // elements of one byte
  Array32,  // of four
  Array64,  // of eight
  Any,
  Variable,  // of any kind that is kept as a variable
  Scalar,
  Managed,
  IntW,     // an integer as small as the number w
  BitsBC,   // the wider of b and c
  SameAsB,  // what register b holds
  KindB,    // a value of the kind b
  KindC,
  ScalarB,  // the same, a scalar
  TypeB,    // a value of the type with index b
  TypeC,
  ConstantW,  // a constant
  GlobalB,    // a value of the type of global slot b
  LocalA,     // of the type of local slot a
  LocalB,
  ElementA,  // of the elements of the array in register a, or at its address
  ElementB,
  ElementOfGlobalA,  // of the elements of the array in global slot a
  ElementOfGlobalB,
  MemberA,  // of member b of the structure at the address in register a
  MemberB,  // of member c of the structure in register b
  AppendC,  // of the value type of append site c
  ResultB,  // of the result of procedure b
  SiteB,    // of the result of call site b
  Return,   // of this code's result
  ReturnScalar,
  // addresses
  AddressOfString,
  AddressOfStruct,
  AddressOfArray,
  AddressOfArray8,
  AddressOfArray32,
  AddressOfArray64,
  AddressOfTypeC,
  AddressOfAppend,
  AddressOfGlobalB,
  AddressOfLocalB,
  AddressOfMemberB,
  AddressOfElementB,
  AddressOfElementOfGlobalB,
  // indexes
  Number,
  Divisor,  // a number that is not 0
  Kind,
  Type,
  Constant,
  DoubleConstant,
  StringConstant,
  StringText,
  Global,
  GlobalInt,  // a global of this type
  GlobalDouble,
  GlobalArray8,  // a global that is such an array
  GlobalArray32,
  GlobalArray64,
  Local,
  Object,  // a local that lives in a variable
  Name,
  Member,
  Append,
  Procedure,
  Site,
  Arguments,  // the first of the registers that a call site passes
  Operator,
  Jump,
};

struct OperandInfo {
  Role role = Role::None;
  Holds holds = Holds::Nothing;

  constexpr bool IsRegister() const { return role > Role::None && role < Role::Index; }
  constexpr bool IsWritten() const { return role == Role::Write || role == Role::Lend; }
};

struct OpInfo {
  /// Bits of `effects`.
  enum Effect : uint16_t {
    Fails = 1,
    Zero = 2,
    Calls = 4,
    Changes = 8,
    Stops = 16,
    Ends = 32,
    Dies = 64,
    Enters = 128,
    Leaves = 256,
  };
  std::string_view name;
  OperandInfo a, b, c;
  uint16_t effects;

  constexpr bool Has(uint16_t effect) const { return (effects & effect) != 0; }
  /// Behind it an error may stand that nobody has looked at.
  constexpr bool LeavesError() const { return Has(Calls | Leaves); }
  /// A run may leave the instruction for elsewhere with values still in its registers.
  constexpr bool MayLeave() const { return Has(Fails | Dies | Calls | Stops); }
  constexpr bool IsJump() const { return b.holds == Holds::Jump || c.holds == Holds::Jump; }
  /// The jump's distance is operand c, not both b and c.
  constexpr bool IsShortJump() const { return c.holds == Holds::Jump; }
};

const OpInfo& InfoOf(Op op);
inline constexpr uint16_t kOpCount = 0
#define OP(name, ...) +1
#include "machine/opcodes.def"
#undef OP
    ;

}  // namespace tamber
