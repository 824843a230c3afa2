#pragma once

#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "machine/code.h"
#include "machine/framestate.h"
#include "machine/locals.h"

namespace tamber {

/// Where a computed value is.
struct Operand {
  enum class Place : uint8_t { None, Reg, Imm, Const };

  Place place = Place::None;
  Kind kind = Kind::None;
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
  /// By slot: a statement may meet it before its declaration has run, and then its name stands for
  /// something wider, of a type that only the run knows.
  std::vector<bool> absent;
  bool byName = false;  ///< they all do
  /// By slot: the statement that declares it; 0 for parameters.
  std::vector<uint32_t> declaredAt;
  /// Names that are a local of the procedure but were understood as something wider where they
  /// stand above the declaration: only the run can tell.
  bool IsMaybeLocal(const VarUse& use, const LocalTable& locals) const {
    return use.slot < 0 && locals.Find(use.name.View()) >= 0;
  }
};

/// Emits the instructions of one procedure or expression and keeps track of its registers.
///
/// Registers: the locals by slot, then temporaries, which are handed out and given back like a
/// stack. What a register holds, and whether it owns it, follows from the instructions: the builder
/// notes what is to be released where a run may leave an instruction, makes borrowed values
/// independent before an instruction that could pull them away, and releases what a temporary still
/// owns after the instruction for which it was given back.
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
  /// What there is too much of for the operands of instructions; "" when the code is whole.
  std::string_view Exceeded() const { return exceeded_; }

  // --- temporaries ---
  uint16_t NewTemp();
  bool IsTemp(uint16_t reg) const { return locals_ == nullptr || reg >= locals_->Count(); }
  uint32_t Mark() const { return nextTemp_; }
  /// Gives back the temporaries from `mark` on. The next instruction may still read them.
  void Reset(uint32_t mark) { nextTemp_ = mark; }
  /// Before the arguments of a built-in are computed: an error that an earlier call in the
  /// statement may have left is cleared. Outside of calls none stands when a statement begins.
  void ClearError();
  /// Applies the policy where an error may stand.
  void CheckError();
  /// A statement ends here: gives back all temporaries and releases what they own.
  void EndStatement();
  /// Nobody reads the operand any more: what its register owns is released.
  void Free(const Operand& operand);
  bool Owns(const Operand& operand) const;
  /// The registers as they are now, for code that is emitted elsewhere but runs from here on.
  FrameState State() const { return state_; }
  void Restore(const FrameState& state, uint32_t mark) {
    state_ = state;
    nextTemp_ = mark;
  }
  /// Whether one of the instructions from `pc` on may be a division by zero.
  bool MayDivideByZero(uint32_t pc) const;

  // --- operands ---
  static Operand Immediate(Kind kind, int32_t value);
  Operand Constant(Kind kind, Cell cell);  ///< takes the cell over
  Operand TextConstant(std::string_view text);
  Operand InReg(Kind kind, uint16_t reg, const TypeRef& type) const;
  /// The empty value of a type.
  Operand EmptyValue(const TypeRef& type);
  /// The operand in a register: an immediate or constant is loaded into a new temporary.
  Operand ToReg(const Operand& operand);
  /// The value moved into this very register (a fresh temporary), owned when managed.
  void MoveInto(uint16_t reg, const Operand& operand);
  /// The value put into this fresh temporary for a call; `lent`: what belongs to others may be
  /// lent.
  void PassIn(uint16_t reg, const Operand& operand, bool lent);
  /// A structure or an array as a value of its own, where it could be what it is stored into a part
  /// of; every other operand as it is.
  Operand Independent(const Operand& operand);
  /// The value converted as an assignment to `to` does it; nothing: it never can be.
  std::optional<Operand> Convert(const Operand& operand, const TypeDesc& to);
  /// The value as a variable, which nobody else holds unless it is one already.
  Operand ToVariable(const Operand& operand);
  /// As an integer register that a condition tests; a value that is no number counts as 0.
  Operand ToCondition(const Operand& operand);
  /// As a boolean, as the logical operators see it: 0.5 is true.
  Operand ToTruth(const Operand& operand);
  /// Converts between the numeric kinds (operands of arithmetic).
  Operand Promote(const Operand& operand, Kind kind);
  /// Pushes onto the evaluation stack, giving up the operand.
  void Push(const Operand& operand);

  // --- variables ---
  /// While a statement is emitted that calls who may change locals by name: what is read of one is
  /// read before that.
  void SetLocalsChange(bool change) { localsChange_ = change; }
  bool LocalsChange() const { return localsChange_; }
  bool IsObject(int32_t slot) const;
  bool IsRegister(const VarUse& use) const;
  bool IsDynamic(const VarUse& use) const;
  bool IsGlobal(const VarUse& use) const { return use.slot == -1 && !IsDynamic(use); }
  /// Whether the variable can be stored into only as a whole: its type may be another one than that
  /// of `use`, or it is not kept as a plain value.
  bool IsStoredWhole(const VarUse& use) const;
  Operand Load(const VarUse& use);
  /// The variable itself in a new temporary, with a holder. `stored`: a statement changes it.
  Operand LoadVariable(const VarUse& use, bool stored = false);
  /// The address of the variable's cell in a new temporary.
  uint16_t LoadAddress(const VarUse& use);
  /// Assigns; false when the types never fit (an instruction that says so has been emitted).
  bool Store(const VarUse& use, const Operand& value);
  /// Assigns through the variable in `target` (kind Any, owned; given up).
  void AssignVariable(const Operand& target, const Operand& value);
  /// `value` never becomes a `target`, and the error says so.
  void EmitFail(int32_t code, std::string_view text, const TypeDesc& target, const Operand& value);

  // --- tables ---
  uint32_t GlobalIndex(const VarUse& use);
  uint32_t TypeIndex(const TypeRef& type);
  uint32_t NameIndex(const Name& name);
  uint32_t ProcedureIndex(Callable* procedure);
  uint32_t SiteIndex(const CallSite& site);
  uint32_t AppendIndex(const TypeRef& array, const TypeRef& value);
  Code& GetCode() { return code_; }
  const LocalTable* Locals() const { return locals_; }
  const LocalFacts* Facts() const { return facts_; }

 private:
  void SetJumpTarget(uint32_t at, uint32_t target);
  Operand Unary(Op op, Kind kind, const Operand& operand);
  uint32_t Append(const Instr& instr);
  void MakeIndependent(const Instr& instr);
  void ReleaseGivenBack();
  void RecordLive(const Instr& instr);
  bool ConvertLast(uint16_t reg, Kind kind);
  Operand ViaVariable(const Operand& operand, const TypeDesc& to);
  bool IsTooLarge() const { return !exceeded_.empty(); }
  void Exceed(std::string_view limit);
  uint32_t Checked(size_t index);
  template <class Entry, class Same>
  uint32_t IndexIn(std::vector<Entry>& table, const Entry& entry, Same same);

  Code& code_;
  const LocalTable* locals_;
  const LocalFacts* facts_;
  bool wideJumps_;
  bool jumpOverflow_ = false;
  std::string_view exceeded_;
  bool localsChange_ = false;
  bool mayHaveError_;  ///< one may stand that this statement, or what evaluates it, has left
  uint32_t source_ = 0;
  uint32_t nextTemp_;
  uint32_t lastBound_ = 0;  // a jump may lead to the instruction before this one's end
  FrameState state_;
  std::vector<uint16_t> aliases_;     // variables that stand for a value: others can change them
  std::vector<uint16_t> fresh_;       // temporaries handed out and not written yet
  std::vector<uint16_t> loans_;       // scratch
  std::vector<OwnedRegister> owned_;  // scratch
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
