#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "machine/code.h"

namespace tamber {

/// How a register has what it holds.
enum class Hold : uint8_t {
  Empty,
  Scalar,
  Borrowed,  ///< a managed value of somebody else's
  Owned,
  Address,  ///< of a cell of the type
};

/// What is known of one register before an instruction runs.
struct RegisterState {
  /// Nobody in this frame: a global, an object, a constant.
  static constexpr uint16_t kOutside = 0xFFFF;
  /// The code itself: such a value lasts as long as the run.
  static constexpr uint16_t kConstant = 0xFFFE;

  Hold hold = Hold::Empty;
  /// Of a borrowed value: the register that it is a part of. Of an address: the register in which
  /// its cell lies.
  uint16_t lender = kOutside;
  const TypeDesc* type = nullptr;  ///< of the value, or of the cell at the address
  bool isInside = false;           ///< the cell is a part of what the lender holds

  bool operator==(const RegisterState&) const = default;
};

/// What the registers of a frame and its part of the evaluation stack hold at one point of the
/// code, worked out from the descriptions of the instructions. The builder follows the code with it
/// while it emits, the verifier along every way that a run can take.
class FrameState {
 public:
  /// The state in which the code begins.
  explicit FrameState(const Code& code);

  /// What keeps the instruction from running in this state; "" for nothing.
  std::string_view Check(const Instr& at) const;
  /// The state after the instruction has run. It has passed Check.
  void Apply(const Instr& at);
  /// The state after an instruction failed: temporaries from `keep` on are gone, and so is what was
  /// pushed.
  void Fail(uint32_t keep);
  /// Keeps what is certain on both ways; false when nothing changed. `error` is set where they
  /// differ in what must be released.
  bool Merge(const FrameState& other, std::string_view& error);

  RegisterState Get(uint32_t reg) const;
  /// Appends the temporaries, ascending, that own something when a run leaves the instruction for
  /// elsewhere. The arguments of a call are the callee's by then.
  void FindOwned(const Instr& at, std::vector<OwnedRegister>& owned) const;
  bool OwnsNothing() const;
  /// Appends the temporaries whose values the instruction could pull away under their users: what
  /// is borrowed from others than other temporaries.
  void FindLoans(const Instr& at, std::vector<uint16_t>& loans) const;
  uint32_t StackDepth() const { return depth_; }
  bool IsTemp(uint32_t reg) const { return reg >= localCount_; }
  /// Forgets what a temporary holds.
  void Drop(uint32_t reg);
  /// What one register holds is in another one instead.
  void Rename(uint32_t from, uint32_t to);
  /// Takes every local for written, for whoever knows by other means. Copies of the state then cost
  /// nothing but what the temporaries hold.
  void AssumeLocals() { written_.clear(); }

 private:
  struct Temp {
    uint16_t reg;
    RegisterState state;
    bool operator==(const Temp&) const = default;
  };
  const Temp* Find(uint32_t reg) const;
  void Set(uint32_t reg, const RegisterState& state);
  bool IsWritten(uint32_t slot) const {
    return written_.empty() || (written_[slot / 64] >> (slot % 64) & 1) != 0;
  }
  void SetWritten(uint32_t slot) {
    if (!written_.empty()) written_[slot / 64] |= uint64_t{1} << (slot % 64);
  }
  bool IsObject(uint32_t slot) const;
  const TypeDesc* LocalType(uint32_t slot) const;
  const TypeDesc* GlobalType(uint32_t index) const;
  bool IsGlobalOf(uint32_t index, Kind kind) const;
  std::string_view CheckRead(const OperandInfo& info, const Instr& at, uint32_t reg) const;
  std::string_view CheckWrite(const OperandInfo& info, const Instr& at, uint32_t reg) const;
  std::string_view CheckIndex(const OperandInfo& info, const Instr& at, uint32_t index) const;
  std::string_view CheckOperand(const OperandInfo& info, const Instr& at, uint32_t value) const;
  std::string_view CheckArguments(const Instr& at) const;
  std::string_view CheckPassed(const Instr& at) const;
  bool PutsIntoItself(const Instr& at) const;
  bool Fits(Holds holds, const Instr& at, const RegisterState& state) const;
  /// The type that a register or index of this kind has; null where the table does not tell.
  const TypeDesc* TypeFor(Holds holds, const Instr& at) const;
  RegisterState Result(const OperandInfo& info, const Instr& at) const;
  uint32_t Popped(const Instr& at) const;
  bool IsLoan(const RegisterState& state) const;
  bool EndsLoan(const OpInfo& op, const RegisterState& state) const;
  void EndLoans(const OpInfo& op);
  void EndLoansFrom(uint32_t lender);

  const Code* code_;
  uint32_t localCount_;
  std::vector<uint64_t> written_;  ///< by slot: a value is there; empty: in every slot
  std::vector<Temp> temps_;        ///< those that are not empty, by register
  uint32_t depth_ = 0;             ///< entries of the evaluation stack
};

}  // namespace tamber
