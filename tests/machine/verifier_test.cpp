// Code that was damaged on purpose is refused before it runs.
#include "machine/verifier.h"

#include <gtest/gtest.h>

#include <functional>

#include "machine/callable.h"
#include "machine/codebuilder.h"
#include "machine/disassemble.h"
#include "values/arraydata.h"

namespace {

using tamber::Code;
using tamber::CodeBuilder;
using tamber::Instr;
using tamber::Kind;
using tamber::LocalFacts;
using tamber::Op;
using tamber::Operand;
using tamber::StatementEntry;
using tamber::TypeDesc;

class ProcedureWithLocals final : public tamber::Callable {
 public:
  ProcedureWithLocals() : Callable("test", nullptr) {
    const auto text = TypeDesc::Of(Kind::String);
    for (const auto& [name, type] :
         {std::pair("n", TypeDesc::Of(Kind::Int)), std::pair("d", TypeDesc::Of(Kind::Double)),
          std::pair("s", text), std::pair("l", TypeDesc::ArrayOf(text)), std::pair("o", text)}) {
      tamber::Local local;
      local.name = tamber::Name(name);
      local.type = type;
      Locals().Add(local);
    }
  }
};
constexpr uint16_t kN = 0, kD = 1, kS = 2, kL = 3, kO = 4, kTemp = 5;

/// The code of a procedure with an int, a double, a string, an array of strings and a string that
/// lives in an object. Statement 1 declares them; 2 puts l[n] joined with a global into s, under
/// 3 the policy is applied, 4 begins anew while n is below 10.
class Verified : public testing::Test {
 protected:
  Verified() {
    code_.procedure = &procedure_;
    code_.ownedLocals = {{kS, Kind::String}, {kL, Kind::Array}, {kO, Kind::Any}};
    facts_.object = {false, false, false, false, true};
    facts_.absent.assign(5, false);
    CodeBuilder b(code_, &procedure_.Locals(), &facts_, false);
    Begin(b);
    b.Emit(Op::Zero, kN, static_cast<uint32_t>(Kind::Int));
    b.Emit(Op::Zero, kD, static_cast<uint32_t>(Kind::Double));
    b.Emit(Op::DeclO, kS);
    b.Emit(Op::DeclO, kL);
    Begin(b);
    tamber::Label top;
    b.Bind(top);
    const Operand list = b.Load({tamber::Name("l"), kL, TypeDesc::ArrayOf(Text())});
    const uint16_t element = b.NewTemp();
    get_ = b.Emit(Op::AGet64, element, list.reg, kN);
    load_ = b.Pc();
    const Operand global = b.Load({tamber::Name("g"), -1, Text()});
    const uint16_t joined = b.NewTemp();
    join_ = b.Emit(Op::Concat, joined, element, global.reg);
    check_ = b.Emit(Op::ChkErr);
    Begin(b);
    store_ = b.Emit(Op::TakeO, kS, joined, static_cast<uint32_t>(Kind::String));
    b.Emit(Op::AddIK, kN, kN, 1);
    b.EndStatement();
    Begin(b);
    tamber::Label out;
    b.EmitJump(Op::JGeIK, kN, 10, out);
    b.LoopTo(top);
    loop_ = b.Pc() - 1;
    Begin(b);
    b.Bind(out);
    b.Emit(Op::RetV);
    for (StatementEntry& entry : code_.statements) entry.resume = b.Pc() - 1;
  }

  static const tamber::TypeRef& Text() { return TypeDesc::Of(Kind::String); }
  void Begin(const CodeBuilder& b) {
    StatementEntry entry{};
    entry.begin = b.Pc();
    entry.statement = (code_.statements.size() + 1) & StatementEntry::kMaxStatement;
    code_.statements.push_back(entry);
  }
  /// What is found when one instruction, or a table, is changed.
  std::string Damage(const std::function<void()>& change) {
    change();
    return tamber::VerifyCode(code_);
  }
  Instr& At(uint32_t pc) { return code_.instrs[pc]; }

  ProcedureWithLocals procedure_;
  LocalFacts facts_;
  Code code_;
  uint32_t get_, load_, join_, check_, store_, loop_;
};

#define EXPECT_FOUND(change, what) \
  EXPECT_NE(Damage([&] { change; }).find(what), std::string::npos) << tamber::VerifyCode(code_)

TEST_F(Verified, WhatIsWhole) {
  EXPECT_EQ(tamber::VerifyCode(code_), "");
  std::string text;
  tamber::Disassemble(code_, text);
  EXPECT_NE(text.find("AGet64     t0, l, n  else ->16"), std::string::npos) << text;
  EXPECT_NE(text.find("LdG        t1, g"), std::string::npos) << text;
  EXPECT_NE(text.find("Concat     t2, t0, t1"), std::string::npos) << text;
}

TEST_F(Verified, ARegisterOfAnotherKind) { EXPECT_FOUND(At(get_).c = kD, "something else"); }
TEST_F(Verified, AnElementOfAnotherSize) {
  EXPECT_FOUND(At(get_).op = Op::AGet32, "something else");
}
TEST_F(Verified, AnEmptyRegister) { EXPECT_FOUND(At(join_).c = kTemp + 9, "range"); }
TEST_F(Verified, AValueThatWasNeverWritten) { EXPECT_FOUND(At(0).op = Op::Nop, "holds nothing"); }
TEST_F(Verified, AnObjectAsAValue) { EXPECT_FOUND(At(join_).b = kO, "holds nothing"); }
TEST_F(Verified, AValueReadAfterItWasTaken) {
  EXPECT_FOUND((At(store_ + 1) = {Op::SEq, kN, At(store_).b, kS}), "holds nothing");
}
TEST_F(Verified, AValueTakenThatIsBorrowed) {
  EXPECT_FOUND(At(store_).b = At(get_).a, "");
  EXPECT_NE(tamber::VerifyCode(code_), "");
}
TEST_F(Verified, AValueThatNobodyReleases) {
  EXPECT_FOUND(At(store_).op = Op::Nop, "one of two ways");
}
TEST_F(Verified, AValueReleasedTwice) {
  EXPECT_FOUND((At(store_ + 1) = {Op::RelO, At(store_).b, static_cast<uint16_t>(Kind::String), 0}),
               "holds nothing");
}
TEST_F(Verified, AValueThatAnErrorWouldForget) {
  EXPECT_FOUND(code_.live.clear(), "releases something else");
}
TEST_F(Verified, AValueThatAnErrorWouldReleaseTwice) {
  EXPECT_FOUND(code_.live.push_back({store_, 0, 1}), "");
  EXPECT_FOUND(code_.live.front().count = 0, "releases something else");
}
TEST_F(Verified, ABorrowedValueThatACallMayPullAway) {
  EXPECT_FOUND((At(load_) = {Op::ChkErr, 0, 0, 0}), "holds nothing");
}
TEST_F(Verified, AnArgumentThatACallMayPullAway) {
  const auto function =
      std::make_shared<TamberFunction>("F", nullptr, nullptr, static_cast<uint16_t>(0));
  code_.sites.push_back({function, 1, Kind::Any, false, {{{Kind::String, Text()}}}});
  EXPECT_FOUND((At(join_) = {Op::CallD, At(join_).a, 0, At(get_).a}), "somebody else's");
  EXPECT_FOUND((At(join_) = {Op::CallP, At(join_).a, 0, kN}), "another type");
}
TEST_F(Verified, AJumpIntoAStatement) { EXPECT_FOUND(At(loop_).SetWide(-2), "no statement"); }
TEST_F(Verified, AJumpOutOfTheCode) { EXPECT_FOUND(At(loop_).SetWide(99), "no statement"); }
TEST_F(Verified, AnErrorThatLeadsNowhere) {
  EXPECT_FOUND(code_.statements[1].resume = StatementEntry::kNone, "without a way");
}
TEST_F(Verified, AnErrorThatLeadsToWhereAValueIsMissing) {
  EXPECT_FOUND(code_.statements[1].resume = code_.statements[2].begin, "one of two ways");
}
TEST_F(Verified, AnIndexOutsideItsTable) { EXPECT_FOUND(At(load_).b = 7, "outside its table"); }
TEST_F(Verified, AnElementOfAGlobalOfAnotherType) {
  EXPECT_FOUND((At(get_) = {Op::GGet64, At(get_).a, At(load_).b, kN}), "global of another type");
}
TEST_F(Verified, AStringConstantThatIsNone) {
  EXPECT_FOUND((At(store_ + 1) = {Op::JSEqK, kS, 0, 1}), "no string");
}
TEST_F(Verified, ALoopThatIsNotThere) {
  EXPECT_FOUND(At(store_ + 1).op = Op::AddIKL, "something else than a loop");
}
TEST_F(Verified, ACodeWithoutAnEnd) { EXPECT_FOUND(code_.instrs.pop_back(), "out of order"); }
TEST_F(Verified, AnUnknownInstruction) {
  EXPECT_FOUND(At(join_).op = static_cast<Op>(tamber::kOpCount), "no instruction");
}
TEST_F(Verified, AnOperandTakenFromAnEmptyStack) {
  EXPECT_FOUND((At(load_) = {Op::PopTo, At(load_).a, 0, 0}), "more than was pushed");
}

}  // namespace
