#pragma once

#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "machine/code.h"
#include "machine/locals.h"

namespace tamber {

/// Where a computed value is.
struct Operand {
  enum class Place : uint8_t { None, Reg, Imm, Const };

  Place place = Place::None;
  Kind kind = Kind::None;
  bool owned = false;     ///< the register's reference is the holder's to give on or release
  bool unstable = false;  ///< borrowed from where a called procedure could change it
  uint16_t reg = 0;
  int32_t imm = 0;     ///< Imm: the value, of kind Bool, Char or Int
  uint32_t index = 0;  ///< Const: into Code::constants
  TypeRef type;        ///< null only for None

  bool IsScalar() const { return !IsManaged(kind); }
};

/// A place that instructions jump to.
class Label {
 private:
  friend class CodeBuilder;
  std::optional<uint32_t> pc_;
  std::vector<uint32_t> jumps_;
};

/// Facts about a procedure that lowering needs before its first instruction.
struct LocalFacts {
  std::vector<bool> object;  ///< by slot: lives in a Variable
  bool byName = false;       ///< something it calls may look for its locals by name
  bool maybeLocals = false;  ///< some name is one of those that IsMaybeLocal tells
  /// Names that are a local of the procedure but were understood as something wider where they
  /// stand above the declaration: only the run can tell.
  bool IsMaybeLocal(const VarUse& use, const LocalTable& locals) const {
    return use.slot < 0 && locals.Find(use.name.View()) >= 0;
  }
};

/// Emits the instructions of one procedure or expression and keeps track of its registers.
///
/// Registers: the locals by slot, then temporaries, which are handed out and given back like a
/// stack. A temporary that owns a reference is registered as such, so that a failing instruction
/// knows what to release.
class CodeBuilder {
 public:
  /// `wideJumps`: the short jumps did not reach in a first attempt.
  CodeBuilder(Code& code, const LocalTable* locals, const LocalFacts* facts, bool wideJumps);

  // --- instructions ---
  /// Place in the logical line that the next instructions come from.
  uint32_t Source() const { return source_; }
  void SetSource(uint32_t offset) { source_ = offset; }
  uint32_t Emit(Op op, uint32_t a = 0, uint32_t b = 0, uint32_t c = 0);
  uint32_t EmitWide(Op op, uint32_t a, int32_t wide);
  uint32_t Pc() const { return static_cast<uint32_t>(code_.instrs.size()); }
  void Bind(Label& label);
  /// Where a bound label is.
  static uint32_t PcOf(const Label& label) { return *label.pc_; }
  void Jump(Label& label) { EmitJump(Op::Jmp, 0, 0, label); }
  /// Op is a jump; short ones compare R[a] with R[b] or b.
  void EmitJump(Op op, uint32_t a, uint32_t b, Label& label);
  void LoopTo(const Label& label);
  /// Makes the last instruction put its result into `to` in place of `from`, where that is all it
  /// does to `from` and nothing jumps in between. False: nothing changed.
  bool RetargetLast(uint16_t from, uint16_t to);
  /// Control may come here from elsewhere: the last instruction stays as it is.
  void Fence() { lastBound_ = Pc(); }
  bool WideJumps() const { return wideJumps_; }
  /// A short jump did not reach, or there were too many registers or table entries.
  bool JumpOverflow() const { return jumpOverflow_; }
  bool TooLarge() const { return tooLarge_; }

  // --- temporaries ---
  uint16_t NewTemp();
  bool IsTemp(uint16_t reg) const { return locals_ == nullptr || reg >= locals_->Count(); }
  uint32_t Mark() const { return nextTemp_; }
  void Reset(uint32_t mark) { nextTemp_ = mark; }
  /// Marks a temporary's content as owned.
  void Own(uint16_t reg, Kind kind) { owned_.push_back({reg, kind}); }
  /// Forgets the ownership: an instruction took the reference.
  void Disown(uint16_t reg);
  /// Releases what an operand owns, if it does.
  void Free(const Operand& operand);
  uint32_t OwnedCount() const { return static_cast<uint32_t>(owned_.size()); }

  // --- operands ---
  static Operand Immediate(Kind kind, int32_t value);
  Operand Constant(Kind kind, Cell cell);  ///< takes the cell over
  Operand TextConstant(std::string_view text);
  Operand InReg(Kind kind, uint16_t reg, const TypeRef& type, bool owned) const;
  /// The operand in a register: an immediate or constant is loaded into a new temporary.
  Operand ToReg(const Operand& operand);
  /// The value moved into this very register (a fresh temporary), owned when managed.
  void MoveInto(uint16_t reg, const Operand& operand);
  /// Makes a managed operand independent of later changes.
  Operand Stabilise(const Operand& operand);
  /// A further reference of a structure or an array, to be taken before a place is entered that it
  /// is stored in: the value may be what the place is a part of, and is then copied on the way
  /// there.
  Operand Independent(const Operand& operand);
  /// The value converted as an assignment to `to` does it; nothing: it never can be.
  std::optional<Operand> Convert(const Operand& operand, const TypeDesc& to);
  /// As an integer register that a condition tests; a value that is no number counts as 0.
  Operand ToCondition(const Operand& operand);
  /// Converts between the numeric kinds (operands of arithmetic).
  Operand Promote(const Operand& operand, Kind kind);
  /// Pushes onto the evaluation stack, giving up the operand.
  void Push(const Operand& operand);

  // --- variables ---
  bool IsObject(int32_t slot) const;
  bool IsRegister(const VarUse& use) const;
  bool IsDynamic(const VarUse& use) const;
  Operand Load(const VarUse& use);
  /// The variable itself in a new temporary, with a holder.
  Operand LoadVariable(const VarUse& use);
  /// The address of the variable's cell in a new temporary.
  uint16_t LoadAddress(const VarUse& use);
  /// Assigns; false when the types never fit (an instruction that says so has been emitted).
  bool Store(const VarUse& use, const Operand& value);
  /// Assigns through the variable in `target` (kind Any, owned; given up).
  void AssignVariable(const Operand& target, const Operand& value);
  void EmitFail(int32_t code, std::string_view text);

  // --- tables ---
  uint32_t GlobalIndex(const VarUse& use);
  uint32_t TypeIndex(const TypeRef& type);
  uint32_t NameIndex(const Name& name);
  uint32_t ProcedureIndex(Callable* procedure);
  uint32_t SiteIndex(CallSite site);
  uint32_t AppendIndex(const TypeRef& array, const TypeRef& value);
  Code& GetCode() { return code_; }
  const LocalTable* Locals() const { return locals_; }
  const LocalFacts* Facts() const { return facts_; }

 private:
  static bool IsShortJump(Op op);
  void SetJumpTarget(uint32_t at, uint32_t target);
  Operand Unary(Op op, Kind kind, const Operand& operand);
  Operand ViaVariable(const Operand& operand, const TypeDesc& to);
  uint32_t Checked(size_t index);

  Code& code_;
  const LocalTable* locals_;
  const LocalFacts* facts_;
  bool wideJumps_;
  bool jumpOverflow_ = false;
  bool tooLarge_ = false;
  uint32_t source_ = 0;
  uint32_t nextTemp_;
  uint32_t lastBound_ = 0;  // a jump may lead to the instruction before this one's end
  std::vector<OwnedRegister> owned_;
  std::unordered_map<std::string, uint32_t> globalIndex_;
  std::unordered_map<const Callable*, uint32_t> procedureIndex_;
  std::unordered_map<uint64_t, uint32_t> constantIndex_;  // by bits and kind, scalars only
};

/// While it lives, instructions come from one place of the logical line.
class SourceMark {
 public:
  SourceMark(CodeBuilder& builder, uint32_t offset) : builder_(builder), before_(builder.Source()) {
    builder.SetSource(offset);
  }
  SourceMark(const SourceMark&) = delete;
  SourceMark& operator=(const SourceMark&) = delete;
  ~SourceMark() { builder_.SetSource(before_); }

 private:
  CodeBuilder& builder_;
  uint32_t before_;
};

}  // namespace tamber
