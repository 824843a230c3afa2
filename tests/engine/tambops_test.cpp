#include "engine/tambops.h"

#include <gtest/gtest.h>

#include <csignal>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "values/cellops.h"
#include "values/errcodes.h"
#include "values/varholder.h"
#include "values/varint.h"

namespace {

using tamber::Kind;
using tamber::TypeDesc;
using tamber::TypeRef;
using tamber::VarHolder;
using Op = TamberOperators::Operator_e;

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();

Op BinaryOp(const char* text) { return TamberOperators::CheckBinaryOperator(text); }
Op UnaryOp(const char* text) { return TamberOperators::CheckUnaryOperator(text); }

class TambOpsTest : public testing::Test {
 protected:
  int32_t Run(Op code) {
    return ops_.ExecuteOperator(TamberOperators::GetOperatorIndex(code), &stack_);
  }
  /// Runs a binary operator on what `left` and `right` push.
  template <class Left, class Right>
  int32_t Run(const char* op, Left left, Right right) {
    stack_.PopAll();
    Push(left);
    Push(right);
    return Run(BinaryOp(op));
  }
  template <class Left, class Right>
  int32_t IntOf(const char* op, Left left, Right right) {
    EXPECT_EQ(Run(op, left, right), 1) << op << ": " << ops_.GetOperatorError();
    EXPECT_EQ(stack_.GetSize(), 1u);
    return stack_.PopInteger();
  }
  void Push(bool value) { stack_.PushBoolean(value); }
  void Push(char value) { stack_.PushChar(value); }
  void Push(int32_t value) { stack_.PushInteger(value); }
  void Push(float value) { stack_.PushFloat(value); }
  void Push(double value) { stack_.PushDouble(value); }
  void Push(const char* value) { stack_.PushString(value, 0); }

  Stack stack_;
  TamberOperators ops_;
};

// --- result types ---

const std::map<char, Kind> kLetters = {{'S', Kind::String}, {'D', Kind::Double}, {'F', Kind::Float},
                                       {'I', Kind::Int},    {'C', Kind::Char},   {'B', Kind::Bool},
                                       {'H', Kind::Handle}, {'R', Kind::Struct}, {'A', Kind::Array},
                                       {'E', Kind::EString}};

TypeRef TypeOf(char letter) {
  const Kind kind = kLetters.at(letter);
  if (kind == Kind::Handle) return TypeDesc::HandleOf(tamber::Name("TextFileHandle"));
  if (kind == Kind::Array) return TypeDesc::ArrayOf(TypeDesc::Of(Kind::Int));
  if (kind != Kind::Struct) return TypeDesc::Of(kind);
  return TypeDesc::StructOf(tamber::StructLayout::Make(
      tamber::Name("Point"), {{tamber::Name("x"), TypeDesc::Of(Kind::Int)},
                              {tamber::Name("y"), TypeDesc::Of(Kind::Int)}}));
}

// Whatever the declared types say, what lies on the stack afterwards is what ValueKind promises to
// the typed code, what it refuses fails, and everything that compiles runs.
TEST_F(TambOpsTest, ValuesHaveTheKindThatIsPromised) {
  const auto check = [this](Op code, const std::string& operands) {
    SCOPED_TRACE(TamberOperators::GetOperatorName(TamberOperators::GetOperatorIndex(code)).Str() +
                 " on " + operands);
    std::vector<TypeRef> types;
    stack_.PopAll();
    for (const char letter : operands) {
      types.push_back(TypeOf(letter));
      const VarHolder value(tamber::MakeVariable(types.back(), {}));
      VarInteger three("", 0);
      three.SetIntegerValue(3);
      value->Assign(&three);
      stack_.PushVariable(value->Duplicate());
    }
    types.emplace_back();
    const Kind kind = TamberOperators::ValueKind(code, types[0]->GetKind(),
                                                 types[1] ? types[1]->GetKind() : Kind::None);
    EXPECT_EQ(Run(code), kind == Kind::None ? 0 : 1);
    EXPECT_EQ(ops_.GetOperatorError(), kind == Kind::None ? ERR_EXPRPARMMATCH : 0);
    ASSERT_EQ(stack_.GetSize(), kind == Kind::None ? 0u : 1u);
    if (kind != Kind::None) {
      EXPECT_EQ(stack_.GetTypeId(0), TypeDesc::Of(kind)->TypeId());
    }
    int32_t error = 0;
    const TypeRef compiled =
        TamberOperators::ResultType(code, types[0].Get(), types[1].Get(), error);
    EXPECT_EQ(static_cast<bool>(compiled), error == 0);
    if (compiled) {
      EXPECT_NE(kind, Kind::None);
    }
  };
  for (const auto& left : kLetters) {
    for (const char* unary : {"-", "!", "~"}) check(UnaryOp(unary), {left.first});
    for (const auto& right : kLetters) {
      for (const char* binary : {"+", "-", "*", "/", "%", "&", "|", "^", "<<", ">>",
                                 "==", "!=", "<", ">", "<=", ">=", "&&", "||"})
        check(BinaryOp(binary), {left.first, right.first});
    }
  }
}

// --- arithmetic ---

TEST_F(TambOpsTest, IntegersWrapAround) {
  EXPECT_EQ(IntOf("+", kMax, 1), kMin);
  EXPECT_EQ(IntOf("-", kMin, 1), kMax);
  EXPECT_EQ(IntOf("*", 65536, 65536), 0);
  EXPECT_EQ(IntOf("*", kMin, -1), kMin);
  EXPECT_EQ(IntOf("/", kMin, -1), kMin);
  EXPECT_EQ(IntOf("%", kMin, -1), 0);
  Push(kMin);
  EXPECT_EQ(Run(UnaryOp("-")), 1);
  EXPECT_EQ(stack_.PopInteger(), kMin);
}

TEST_F(TambOpsTest, DivisionByZeroPushesZeroAndFails) {
  const auto check = [&](Variable::enum_TypeId type) {
    EXPECT_EQ(ops_.GetOperatorError(), ERR_DIVIDEBYZERO);
    ASSERT_EQ(stack_.GetSize(), 1u);
    EXPECT_EQ(stack_.GetTypeId(0), type);
    EXPECT_EQ(stack_.PopDouble(), 0.0);
  };
  EXPECT_EQ(Run("/", 7, 0), 0);
  check(Variable::Integer);
  EXPECT_EQ(Run("/", 7.0, 0.0), 0);
  check(Variable::Double);
  EXPECT_EQ(Run("/", 7, -0.0), 0);
  check(Variable::Double);
  EXPECT_EQ(Run("/", 7.0f, 0), 0);
  check(Variable::Float);
  EXPECT_EQ(Run("/", 'a', '\0'), 0);
  check(Variable::Integer);
  EXPECT_EQ(IntOf("/", 8, 2), 4);
  EXPECT_EQ(ops_.GetOperatorError(), 0);
}

TEST_F(TambOpsTest, RemainderByZeroUnderAHandlerThatReturns) {
  static volatile std::sig_atomic_t faults;
  faults = 0;
  const auto previous = std::signal(SIGFPE, [](int) { faults = faults + 1; });
  EXPECT_EQ(Run("%", 7, 0), 0);
  std::signal(SIGFPE, previous);
  EXPECT_EQ(faults, 1);
  EXPECT_EQ(ops_.GetOperatorError(), ERR_DIVIDEBYZERO);
  ASSERT_EQ(stack_.GetSize(), 1u);
  EXPECT_EQ(stack_.PopInteger(), 0);
}

// --- comparison and logic ---

TEST_F(TambOpsTest, NumbersCompareInTheWidestType) {
  EXPECT_EQ(IntOf("==", 16777217, 16777216.0f), 1);
  EXPECT_EQ(IntOf("==", 16777217, 16777216.0), 0);
  EXPECT_EQ(IntOf("<", 'a', 98), 1);
  EXPECT_EQ(IntOf(">=", '\xE9', 0), 0);
  EXPECT_EQ(IntOf("==", true, 1), 1);
  EXPECT_EQ(IntOf("!=", true, false), 1);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(IntOf("!=", nan, nan), 1);
  for (const char* op : {"==", "<", ">", "<=", ">="}) EXPECT_EQ(IntOf(op, nan, 1), 0) << op;
  EXPECT_EQ(IntOf("&&", nan, 1), 1);
  EXPECT_EQ(IntOf("&&", 0.5, 0), 0);
  EXPECT_EQ(IntOf("||", 0.0f, 0.25f), 1);
  EXPECT_EQ(IntOf("||", false, 0), 0);
  Push(0.5);
  EXPECT_EQ(Run(UnaryOp("!")), 1);
  EXPECT_EQ(stack_.GetTypeId(0), Variable::Boolean);
  EXPECT_EQ(stack_.PopInteger(), 0);
}

TEST_F(TambOpsTest, TextsCompareWithoutCaseUnlessTheSwitchIsSet) {
  EXPECT_EQ(ops_.GetCaseSwitch(), 0);
  EXPECT_EQ(IntOf("<", "a_", "aB"), 1) << "folding is to lower case";
  EXPECT_EQ(IntOf(">", "\xE9", "z"), 1) << "bytes are unsigned";
  EXPECT_EQ(IntOf("==", "\xC9", "\xE9"), 0) << "only ASCII is folded";
  ops_.SetCaseSwitch(1);
  EXPECT_EQ(IntOf("==", "abc", "ABC"), 0);
  EXPECT_EQ(IntOf("<", "B", "a"), 1);
  stack_.PushString(KelString("a\0x", 3));
  stack_.PushString(KelString("a\0y", 3));
  EXPECT_EQ(Run(BinaryOp("==")), 1);
  EXPECT_EQ(stack_.PopInteger(), 1) << "comparison ends at a NUL";
}

}  // namespace
