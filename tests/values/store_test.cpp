#include "values/store.h"

#include <string>
#include <vector>

#include "value_testing.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/structdata.h"
#include "values/vararray.h"
#include "values/varint.h"
#include "values/varref.h"

namespace {

using tamber::Cell;
using tamber::CellOf;
using tamber::Kind;
using tamber::Name;
using tamber::OwnedCell;
using tamber::Place;
using tamber::PlaceOf;
using tamber::Stored;
using tamber::StructLayout;
using tamber::TypeDesc;
using tamber::TypeOf;
using tamber::TypeRef;
using tamber::Whole;

TypeRef Struct(const char* name, std::vector<StructLayout::Member> members) {
  return TypeDesc::StructOf(StructLayout::Make(Name(name), std::move(members)));
}

TypeRef PointType() {
  static const TypeRef& type =
      *new TypeRef(Struct("Point", {{Name("x"), TypeDesc::Of(Kind::Int)}}));
  return type;
}

/// A type of each kind.
std::vector<TypeRef> AllTypes() {
  std::vector<TypeRef> types;
  for (const Kind kind : {Kind::Bool, Kind::Char, Kind::Int, Kind::Float, Kind::Double,
                          Kind::String, Kind::Handle, Kind::EString}) {
    types.push_back(TypeDesc::Of(kind));
  }
  types.push_back(PointType());
  types.push_back(TypeDesc::ArrayOf(TypeDesc::Of(Kind::Int)));
  return types;
}

Held<Variable> New(const TypeRef& type) { return Held<Variable>(MakeVariable(type, Name("v"))); }

Variable& Part(Variable& whole, const char* member) { return *whole.GetStructElement(member); }
Variable& Part(Variable& whole, uint32_t index) { return *whole.GetArrayElement(index); }

/// A value of the type that is not its empty one.
Held<Variable> Sample(const TypeRef& type) {
  Held<Variable> value = New(type);
  value->SetBoolValue(1);
  value->SetCharValue('c');
  value->SetIntegerValue(7);
  value->SetFloatValue(2.5F);
  value->SetDoubleValue(-0.125);
  value->SetStringValue("text", 0);
  value->SetHandleValue(tamber::HandleOfInt(9));
  if (value->IsStruct() != 0) Part(*value, "x").SetIntegerValue(3);
  value->SetArraySize(2);
  return value;
}

std::string ValueOf(const Variable& variable) {
  KelString out;
  variable.DumpValue(out, "");
  return out.Str();
}

Stored AppendTo(Variable& array, Variable& value) {
  return Append(PlaceOf(array), *TypeOf(value), *CellOf(value));
}

class Storing : public ValueTest {};

TEST_F(Storing, ElementsOfEveryTypeAreStoredReadAndEmptiedAlike) {
  for (const TypeRef& type : AllTypes()) {
    SCOPED_TRACE(type->Word());
    Held<Variable> array = New(TypeDesc::ArrayOf(type));
    Held<Variable> sample = Sample(type);
    const Held<Variable> empty = New(type);
    const std::string full = ValueOf(*sample);
    ASSERT_NE(full, ValueOf(*empty));
    const Place place = PlaceOf(*array);
    ASSERT_EQ(Resize(place, 3), Stored::Done);
    ASSERT_EQ(StoreElement(place, 2, *type, *CellOf(*sample)), Stored::Done);
    ASSERT_EQ(AppendTo(*array, *sample), Stored::Done);
    for (const int32_t index : {INT32_MIN, -1, 0, 5}) {
      Cell unused = tamber::ZeroCell();
      EXPECT_EQ(ReadElement(place.cell->a, index, unused), Stored::Bounds);
      EXPECT_EQ(StoreElement(place, index, *type, *CellOf(*sample)), Stored::Bounds);
      Whole whole(*array);
      EXPECT_EQ(whole.HoldElement(index), Stored::Bounds);
    }
    const auto expect = [&](std::vector<std::string> values) {
      ASSERT_EQ(array->GetElementCount(), values.size());
      for (uint32_t i = 1; i <= values.size(); ++i) {
        Variable* copy = nullptr;
        ASSERT_EQ(CopyElement(place.cell->a, static_cast<int32_t>(i), copy), Stored::Done);
        EXPECT_EQ(ValueOf(*Held<Variable>(copy)), values[i - 1]) << i;
      }
    };
    const std::string none = ValueOf(*empty);
    expect({none, full, none, full});
    const Held<Variable> kept(Part(*array, 2).Duplicate());
    EXPECT_EQ(ValueOf(*kept), full);
    ASSERT_EQ(Resize(place, -3), Stored::Done);
    ASSERT_EQ(Resize(place, 2), Stored::Done);
    expect({none, none, none});
    EXPECT_EQ(ValueOf(*kept), full) << "an element that is gone lives on for who holds it";
  }
}

TEST_F(Storing, TheTypeOfTheTargetAloneSaysWhatItTakes) {
  for (const TypeRef& to : AllTypes()) {
    for (const TypeRef& from : AllTypes()) {
      SCOPED_TRACE(to->Word() + " takes " + from->Word());
      const Stored wanted = to->Accepts(*from) ? Stored::Done : Stored::Mismatch;
      Held<Variable> value = Sample(from);
      const Held<Variable> single = New(to);
      EXPECT_EQ(Assign(PlaceOf(*single), *from, *CellOf(*value)), wanted);
      // An array parameter of a generic type, bound to a typed array.
      const Held<Variable> array = New(TypeDesc::ArrayOf(to));
      VarReference generic("a", array.get());
      EXPECT_EQ(AppendTo(generic, *value), wanted);
      ASSERT_EQ(Resize(PlaceOf(generic), 1), Stored::Done);
      EXPECT_EQ(StoreElement(PlaceOf(generic), 1, *from, *CellOf(*value)), wanted);
      const Held<Variable> others = New(TypeDesc::ArrayOf(from));
      ASSERT_EQ(AppendTo(*others, *value), Stored::Done);
      const bool same = to->IsSame(*from);
      EXPECT_EQ(Assign(PlaceOf(generic), *TypeOf(*others), *CellOf(*others)),
                same ? Stored::Done : Stored::Mismatch);
      for (uint32_t i = 1; i <= array->GetElementCount(); ++i) {
        EXPECT_NE(Part(*array, i).IsSameType(New(to).get()), 0);
      }
      if (to->GetKind() != Kind::EString) continue;
      EXPECT_EQ((DumpOf(*single) + DumpOf(*array)).find("text"), std::string::npos);
    }
  }
}

TEST_F(Storing, AGenericArrayTakesOnAnElementTypeOnlyWhileItIsEmpty) {
  for (const TypeRef& first : AllTypes()) {
    for (const TypeRef& second : AllTypes()) {
      SCOPED_TRACE(first->Word() + " then " + second->Word());
      VarArray generic("g", 0);
      EXPECT_EQ(AppendTo(generic, *Sample(first)), Stored::Done);
      EXPECT_EQ(AppendTo(generic, *Sample(second)),
                first->Accepts(*second) ? Stored::Done : Stored::Mismatch);
      for (uint32_t i = 1; i <= generic.GetElementCount(); ++i) {
        EXPECT_NE(Part(generic, i).IsSameType(New(first).get()), 0);
      }
      const Held<Variable> others = New(TypeDesc::ArrayOf(second));
      EXPECT_EQ(Assign(PlaceOf(generic), *TypeOf(*others), *CellOf(*others)), Stored::Done);
      EXPECT_EQ(generic.GetArrayElementType()->IsSameType(New(second).get()), 1);
    }
  }
}

TEST_F(Storing, WhatIsNoArrayHasNoElements) {
  VarInteger number("n", 0);
  EXPECT_EQ(Resize(PlaceOf(number), 1), Stored::Mismatch);
  EXPECT_EQ(AppendTo(number, number), Stored::Mismatch);
  VarArray generic("g", 0);
  EXPECT_EQ(Append(PlaceOf(generic), *TypeDesc::Of(Kind::None), tamber::ZeroCell()),
            Stored::Mismatch);
}

/// struct Node with a number and a generic array of nodes.
Held<Variable> NewNode(int32_t number) {
  static const TypeRef& type = *new TypeRef(Struct(
      "Node", {{Name("v"), TypeDesc::Of(Kind::Int)}, {Name("in"), TypeDesc::Of(Kind::Array)}}));
  Held<Variable> node = New(type);
  Part(*node, "v").SetIntegerValue(number);
  return node;
}

// A value that is put into itself is a copy of what it was; the fixture sees a cycle as a leak.
TEST_F(Storing, AValueInItselfIsWhatItWas) {
  const Held<Variable> node = NewNode(1);
  Variable& in = Part(*node, "in");
  for (int32_t i = 2; i <= 3; ++i) {
    ASSERT_EQ(AppendTo(in, *node), Stored::Done);
    Part(*node, "v").SetIntegerValue(i);
  }
  const std::string before = ValueOf(*node);
  // As a host's element, by an index, by a reference that is held, and through a part of a part.
  ASSERT_EQ(in.AddArrayElement(node->Clone()), 1);
  EXPECT_EQ(ValueOf(Part(in, 3)), before);
  ASSERT_EQ(StoreElement(PlaceOf(in), 1, *TypeOf(*node), *CellOf(*node)), Stored::Done);
  EXPECT_EQ(Part(Part(in, 1), "in").GetElementCount(), 3U);
  const VarReference held(&Part(Part(Part(in, 1), "in"), 2));
  ASSERT_EQ(held.Dereference()->Assign(node.get()), 1);
  EXPECT_EQ(Part(*held.Dereference(), "in").GetElementCount(), 3U);
  EXPECT_EQ(Part(Part(*held.Dereference(), "in"), 3).GetElementCount(), 2U);
  // And back: the whole becomes one of its parts.
  const std::string part = ValueOf(Part(in, 3));
  ASSERT_EQ(node->Assign(&Part(in, 3)), 1);
  EXPECT_EQ(ValueOf(*node), part);
  EXPECT_EQ(part, before);
  ASSERT_EQ(node->Assign(node.get()), 1);
  EXPECT_EQ(ValueOf(*node), before);
}

// What a procedure returns may hold objects that somebody still has.
TEST_F(Storing, ObjectsStayBehindWhenAValueBecomesAPart) {
  Held<Variable> made = Sample(PointType());
  const Held<Variable> x(Part(*made, "x").Duplicate());
  const Held<Variable> array = New(TypeDesc::ArrayOf(PointType()));
  ASSERT_EQ(Resize(PlaceOf(*array), 1), Stored::Done);
  tamber::ArrayData& data = *CellOf(*array)->a;
  Cell moved = *CellOf(*made);
  *CellOf(*made) = DefaultCell(*PointType());
  data.Put(0, moved);
  const Held<Variable> copy(array->Clone());
  EXPECT_EQ(CellOf(*copy)->a, &data) << "shared, so there must be nothing to write through";
  x->SetIntegerValue(8);
  EXPECT_EQ(ValueOf(*copy), ValueOf(*array));
  EXPECT_EQ(Part(Part(*copy, 1), "x").GetIntegerValue(), 3);
}

}  // namespace
