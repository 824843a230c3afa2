#include "engine/stack.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "values/cellops.h"
#include "values/varholder.h"
#include "values/varint.h"

namespace {

using tamber::VarHolder;

std::string PopText(Stack& stack) {
  const uint32_t length = stack.GetEntryLength(0);
  const std::unique_ptr<char, decltype(&std::free)> buffer(stack.PopString(), &std::free);
  EXPECT_EQ(buffer.get()[length], '\0');
  return std::string(buffer.get(), length);
}

TEST(StackTest, AVariableKeepsItsIdentityAndItsHolders) {
  Stack stack;
  const VarHolder variable(new VarInteger("counter", 0));
  EXPECT_EQ(stack.PushVariable(variable->Duplicate()), 1);
  EXPECT_EQ(stack.GetVariable(0), variable.get());
  variable->SetIntegerValue(7);
  {
    const VarHolder popped(stack.PopVariable());
    EXPECT_EQ(popped.get(), variable.get());
  }
  stack.PushVariable(variable->Duplicate());
  EXPECT_EQ(stack.PopInteger(), 7);
  stack.PushVariable(variable->Duplicate());
  stack.PushInteger(1);
  stack.PopAll();
  EXPECT_EQ(tamber::VariableAccess::Holders(*variable), 0);
  EXPECT_EQ(variable->GetIntegerValue(), 7);
}

TEST(StackTest, CopiesShareVariablesAndOwnTheRest) {
  const VarHolder variable(new VarInteger("n", 0));
  Stack stack;
  stack.PushVariable(variable->Duplicate());
  stack.PushString("text", 0);
  stack.PushHandle("FileFindInfo", nullptr);
  stack.PushTyped(*tamber::TypeDesc::ArrayOf(tamber::TypeDesc::Of(tamber::Kind::Int)),
                  tamber::ZeroCell());
  {
    Stack copy(stack);
    EXPECT_EQ(copy.GetSize(), 4u);
    EXPECT_EQ(copy.GetTypeId(0), Variable::Array);
    EXPECT_EQ(copy.GetVariable(0), variable.get());
    copy.PopAll();
    copy = stack;
    copy = *&copy;
    EXPECT_EQ(copy.GetSize(), 4u);
    EXPECT_EQ(tamber::VariableAccess::Holders(*variable), 2);
    copy = Stack();
    EXPECT_EQ(copy.GetSize(), 0u);
    copy = stack;
  }
  EXPECT_EQ(tamber::VariableAccess::Holders(*variable), 1);
  stack.CutTo(2);
  EXPECT_EQ(stack.GetSize(), 2u);
  EXPECT_EQ(PopText(stack), "text");
}

}  // namespace
