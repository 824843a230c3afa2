#include "engine/stack.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "values/cellops.h"
#include "values/varholder.h"
#include "values/varint.h"
#include "values/varref.h"
#include "values/varstring.h"

namespace {

using tamber::VarHolder;

std::string PopText(Stack& stack) {
  const uint32_t length = stack.GetEntryLength(0);
  const std::unique_ptr<char, decltype(&std::free)> buffer(stack.PopString(), &std::free);
  EXPECT_EQ(buffer.get()[length], '\0');
  return std::string(buffer.get(), length);
}

TEST(StackTest, EmptyStackIsSafe) {
  Stack stack;
  EXPECT_EQ(stack.GetTypeId(0), Variable::None);
  EXPECT_EQ(stack.GetEntryLength(0), 0u);
  EXPECT_EQ(stack.GetVariable(0), nullptr);
  EXPECT_EQ(stack.PopVariable(), nullptr);
  stack.Pop();
  stack.PopAll();
  EXPECT_EQ(stack.PopBoolean(), 0);
  EXPECT_EQ(stack.PopChar(), 0);
  EXPECT_EQ(stack.PopInteger(), 0);
  EXPECT_EQ(stack.PopFloat(), 0.0f);
  EXPECT_EQ(stack.PopDouble(), 0.0);
  EXPECT_EQ(stack.PopHandle(), nullptr);
  EXPECT_EQ(PopText(stack), "");
  KelString text("left");
  stack.PopKelString(text);
  EXPECT_EQ(text, "");
  EXPECT_EQ(stack.PushVariable(nullptr), 0);
  EXPECT_EQ(stack.GetSize(), 0u);
}

TEST(StackTest, Texts) {
  Stack stack;
  stack.PushString("abc", 2);
  EXPECT_EQ(PopText(stack), "ab");
  stack.PushString("abc", 0);
  EXPECT_EQ(PopText(stack), "abc");
  stack.PushString(nullptr, 3);
  EXPECT_EQ(stack.GetTypeId(0), Variable::String);
  EXPECT_EQ(PopText(stack), "");
  stack.PushString(KelString("a\0b", 3));
  EXPECT_EQ(stack.GetEntryLength(0), 3u);
  KelString text;
  stack.PopKelString(text);
  EXPECT_EQ(text, std::string_view("a\0b", 3));
  stack.PushString("", 0);
  const VarHolder empty(stack.PopVariable());
  EXPECT_STREQ(empty->GetStringValue(), "");
}

TEST(StackTest, Handles) {
  Stack stack;
  int object = 0;
  stack.PushHandle("TextFileHandle", &object);
  EXPECT_EQ(stack.GetTypeId(0), Variable::Handle);
  EXPECT_EQ(stack.GetVariable(0)->GetHandleName(), "TextFileHandle");
  EXPECT_EQ(stack.PopHandle(), &object);
  stack.PushHandle("TextFileHandle", &object);
  EXPECT_EQ(stack.PopHandle(), &object);
  stack.PushInteger(-2);
  EXPECT_EQ(stack.PopHandle(), reinterpret_cast<void*>(intptr_t{-2}));
  stack.PushString("text", 0);
  EXPECT_EQ(stack.PopHandle(), nullptr);
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

TEST(StackTest, AReferenceShowsItsTarget) {
  Stack stack;
  VarString target("name", 0);
  target.SetStringValue("tail", 0);
  stack.PushVariable(new VarReference("alias", &target));
  EXPECT_EQ(stack.GetTypeId(0), Variable::String);
  EXPECT_EQ(stack.GetEntryLength(0), 4u);
  EXPECT_EQ(PopText(stack), "tail");
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

TEST(StackTest, EntriesTravelWithWhatTheyOwn) {
  Stack stack;
  stack.PushString("moved", 0);
  tamber::StackEntry entry = stack.Take();
  EXPECT_EQ(stack.GetSize(), 0u);
  stack.PushCell(entry.kind, entry.cell);
  EXPECT_EQ(PopText(stack), "moved");
  stack.PushHandle("FileFindInfo", nullptr);
  entry = stack.Take();
  Stack::Release(entry);
  Stack::Release(entry);  // an entry that owns nothing
  EXPECT_EQ(stack.GetSize(), 0u);
}

}  // namespace
