#include "machine/instruction.h"

#include <array>

namespace tamber {
namespace {

constexpr OperandInfo rd(Holds holds) { return {Role::Read, holds}; }
constexpr OperandInfo wr(Holds holds) { return {Role::Write, holds}; }
constexpr OperandInfo lend(Holds holds) { return {Role::Lend, holds}; }
constexpr OperandInfo upd(Holds holds) { return {Role::Update, holds}; }
constexpr OperandInfo repl(Holds holds) { return {Role::Replace, holds}; }
constexpr OperandInfo take(Holds holds) { return {Role::Take, holds}; }
constexpr OperandInfo ix(Holds holds) { return {Role::Index, holds}; }
constexpr OperandInfo none{};
constexpr OperandInfo wide{Role::Wide, Holds::Nothing};

constexpr std::array<OpInfo, kOpCount> MakeTable() {
  using enum Holds;
  using enum OpInfo::Effect;
  return {{
#define OP(name, a, b, c, effects) OpInfo{#name, a, b, c, effects},
#include "machine/opcodes.def"
#undef OP
  }};
}

constexpr std::array<OpInfo, kOpCount> kTable = MakeTable();

}  // namespace

const OpInfo& InfoOf(Op op) { return kTable[static_cast<size_t>(op)]; }

}  // namespace tamber
