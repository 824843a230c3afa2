#include "engine/stack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <memory>
#include <string>

#include "values/cellops.h"
#include "values/vararray.h"
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

TEST(StackTest, DepthCountsFromTheTopAndIndexFromTheBottom) {
  Stack stack;
  stack.PushBoolean(1);
  stack.PushString("four", 0);
  stack.PushDouble(2.5);
  EXPECT_EQ(stack.GetTypeId(0), Variable::Double);
  EXPECT_EQ(stack.GetTypeId(1), Variable::String);
  EXPECT_EQ(stack.GetTypeId(2), Variable::Boolean);
  EXPECT_EQ(stack.GetTypeId(3), Variable::None);
  EXPECT_EQ(stack.GetTypeId(0xFFFFFFFFu), Variable::None);
  EXPECT_EQ(stack.GetEntryLength(1), 4u);
  EXPECT_EQ(stack.GetEntryLength(0), 0u);
  EXPECT_EQ(stack.GetEntryLength(0xFFFFFFFFu), 0u);
  EXPECT_EQ(stack.GetVariable(0)->GetTypeId(), Variable::Boolean);
  EXPECT_EQ(stack.GetVariable(2)->GetDoubleValue(), 2.5);
  EXPECT_EQ(stack.GetVariable(3), nullptr);
  // Having looked at the entries changes nothing.
  EXPECT_EQ(stack.GetSize(), 3u);
  EXPECT_EQ(stack.GetTypeId(1), Variable::String);
  EXPECT_EQ(stack.PopDouble(), 2.5);
}

TEST(StackTest, TypedPopsConvertTheEntry) {
  struct Row {
    void (*push)(Stack&);
    int32_t boolean;
    char character;
    int32_t integer;
    double number;
    const char* text;
  };
  const Row rows[] = {
      {[](Stack& s) { s.PushBoolean(5); }, 1, 1, 1, 1.0, ""},
      {[](Stack& s) { s.PushChar('\xE9'); }, -23, '\xE9', -23, -23.0, ""},
      {[](Stack& s) { s.PushInteger(0x1234'5678); }, 0x1234'5678, '\x78', 0x1234'5678, 305419896.0,
       ""},
      {[](Stack& s) { s.PushFloat(-2.75f); }, 1, '\xFE', -2, -2.75, ""},
      {[](Stack& s) { s.PushDouble(1e10); }, 1, 0, std::numeric_limits<int32_t>::min(), 1e10, ""},
      {[](Stack& s) { s.PushString("7up", 0); }, 1, '7', 0, 0.0, "7up"},
  };
  for (size_t i = 0; i < std::size(rows); ++i) {
    for (const bool asVariable : {false, true}) {
      SCOPED_TRACE(testing::Message() << "row " << i << (asVariable ? " as a variable" : ""));
      Stack stack;
      const auto push = [&] {
        rows[i].push(stack);
        if (asVariable) stack.GetVariable(stack.GetSize() - 1);
      };
      push();
      EXPECT_EQ(stack.PopBoolean() != 0, rows[i].boolean != 0);
      push();
      EXPECT_EQ(stack.PopChar(), rows[i].character);
      push();
      EXPECT_EQ(stack.PopInteger(), rows[i].integer);
      push();
      EXPECT_FLOAT_EQ(stack.PopFloat(), static_cast<float>(rows[i].number));
      push();
      EXPECT_EQ(stack.PopDouble(), rows[i].number);
      push();
      EXPECT_EQ(PopText(stack), rows[i].text);
      EXPECT_EQ(stack.GetSize(), 0u);
    }
  }
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

TEST(StackTest, TemporariesAreUnnamedAndFree) {
  Stack stack;
  stack.PushInteger(3);
  const VarHolder value(stack.PopVariable());
  EXPECT_EQ(value->GetVarName(), "");
  EXPECT_EQ(value->GetVarFlags(), 0u);
  EXPECT_EQ(tamber::VariableAccess::Holders(*value), 0);
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
