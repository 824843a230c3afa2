#include <new>
#include <string>
#include <vector>

#include "value_testing.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/structdata.h"
#include "values/vararray.h"
#include "values/vardouble.h"
#include "values/varint.h"
#include "values/varref.h"
#include "values/varstring.h"
#include "values/varstruct.h"

namespace {

class Structures : public ValueTest {
 protected:
  static Held<VarStruct> Point(int32_t x, const char* label) {
    auto point = Make<VarStruct>("p", 0u);
    point->SetStructName("Point");
    auto* member = new VarInteger("X", 0);
    member->SetIntegerValue(x);
    point->AddStructElement(member, 1);
    auto* text = new VarString("Label", 0);
    text->SetStringValue(label, 0);
    point->AddStructElement(text, 1);
    return point;
  }
};

TEST_F(Structures, MembersAreMatchedByNameWhenDescriptionsDiffer) {
  VarStruct wide("w", 0);
  wide.SetStructName("POINT");
  wide.AddStructElement(new VarString("Extra", 0), 1);
  auto* x = new VarDouble("x", 0);
  x->SetDoubleValue(7.5);
  wide.AddStructElement(x, 1);
  auto p = Point(1, "kept");
  EXPECT_EQ(p->IsSameType(&wide), 1);
  EXPECT_EQ(p->Assign(&wide), 1);
  EXPECT_EQ(p->GetStructElement("x")->GetIntegerValue(), 7);
  EXPECT_EQ(p->GetElementCount(), 2u);
  VarStruct bad("b", 0);
  bad.SetStructName("Point");
  bad.AddStructElement(new VarString("x", 0), 1);
  EXPECT_EQ(p->Assign(&bad), 0);  // a text is no integer
  EXPECT_EQ(p->GetStructElement("x")->GetIntegerValue(), 7);
}

TEST_F(Structures, InnerReferencesSurviveAnOuterAssignment) {
  auto p = Point(1, "one");
  VarStruct box("b", 0);
  box.SetStructName("Box");
  box.AddStructElement(p->Clone(), 1);
  box.AddStructElement(new VarIntegerArray("list", 0), 1);
  Held<Variable> source(box.Clone());
  source->GetStructElement("p")->GetStructElement("x")->SetIntegerValue(42);
  VarReference deep(box.GetStructElement("p")->GetStructElement("x"));
  EXPECT_EQ(box.Assign(source.get()), 1);
  EXPECT_EQ(deep.GetIntegerValue(), 42);
  tamber::CellOf(box)->st->SweepBoxes();
  deep.SetIntegerValue(43);
  EXPECT_EQ(box.GetStructElement("p")->GetStructElement("x")->GetIntegerValue(), 43);
  Held<Variable> later(box.Clone());
  deep.SetIntegerValue(44);
  EXPECT_EQ(later->GetStructElement("p")->GetStructElement("x")->GetIntegerValue(), 43);
}

TEST_F(Structures, AnElementThatAHostWidenedStaysUsable) {
  auto p = Point(1, "one");
  VarStructArray a(p.get(), "a", 0);
  a.SetArraySize(2);
  EXPECT_EQ(a.GetArrayElement(1)->AddStructElement(new VarInteger("y", 0), 1), 1);
  tamber::ArrayData* data = tamber::CellOf(a)->a;
  data->SweepBoxes();
  data->Put(0, tamber::CopyOf(*p));
  EXPECT_EQ(a.GetArrayElement(1)->GetStructElement("x")->GetIntegerValue(), 1);
  EXPECT_EQ(a.GetArrayElement(1)->GetElementCount(), 3u);
  EXPECT_EQ(a.GetArrayElement(2)->GetElementCount(), 2u);
  Held<Variable> copy(a.Clone());
  EXPECT_EQ(copy->GetArrayElement(1)->GetStructElement("label")->GetIntegerValue(), 0);
  EXPECT_STREQ(copy->GetArrayElement(1)->GetStructElement("label")->GetStringValue(), "one");
}

using Members = std::vector<tamber::StructLayout::Member>;

/// A structure type with members of one type, all unlike in name.
tamber::TypeRef StructWith(const tamber::TypeRef& member, int count, uint32_t arraySize = 0) {
  Members members;
  for (int i = 0; i < count; ++i) {
    members.push_back({tamber::Name("m" + std::to_string(i)), member, arraySize});
  }
  return tamber::TypeDesc::StructOf(
      tamber::StructLayout::Make(tamber::Name("S"), std::move(members)));
}

// Eighteen types, each with two members of the one before: a quarter of a million integers, which
// a new value holds once each level until they are written to.
TEST_F(Structures, AlikeMembersOfANewValueAreIndependent) {
  tamber::TypeRef type = StructWith(tamber::TypeDesc::Of(tamber::Kind::Int), 2);
  for (int i = 0; i < 17; ++i) type = StructWith(type, 2);
  const int64_t before = Variable::LiveCount();
  Variable* value = tamber::MakeVariable(type, tamber::Name("v"));
  Variable* left = value;
  Variable* right = value->GetStructElement(2);
  for (int i = 0; i < 18; ++i) {
    left = left->GetStructElement(1);
    if (i < 17) right = right->GetStructElement(1);
  }
  left->SetIntegerValue(5);
  EXPECT_EQ(right->GetIntegerValue(), 0);
  Variable* copy = value->Clone();
  left->SetIntegerValue(6);
  Variable* inner = copy;
  for (int i = 0; i < 18; ++i) inner = inner->GetStructElement(1);
  EXPECT_EQ(inner->GetIntegerValue(), 5);
  Variable::Delete(copy);
  Variable::Delete(value);
  EXPECT_EQ(Variable::LiveCount(), before);
}

TEST_F(Structures, TypesBeyondAnyMemoryAreRefused) {
  const tamber::TypeRef& integer = tamber::TypeDesc::Of(tamber::Kind::Int);
  tamber::TypeRef doubled = StructWith(integer, 2);
  int levels = 1;
  EXPECT_THROW(
      for (; levels < 100; ++levels) doubled = StructWith(tamber::TypeDesc::ArrayOf(doubled), 2, 1),
      std::bad_alloc)
      << "through arrays that start with elements";
  EXPECT_LT(levels, 21);
  tamber::TypeRef deep = StructWith(integer, 1);
  levels = 1;
  EXPECT_THROW(
      for (; levels < 100000; ++levels) deep = StructWith(tamber::TypeDesc::ArrayOf(deep), 1),
      std::bad_alloc);
  EXPECT_GE(levels, 400);
  EXPECT_LE(levels, 500);
}

}  // namespace
