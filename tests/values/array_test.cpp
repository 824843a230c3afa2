#include <climits>
#include <string>

#include "value_testing.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/store.h"
#include "values/strbuf.h"
#include "values/vararray.h"
#include "values/varint.h"
#include "values/varref.h"
#include "values/varstruct.h"

namespace {

class Arrays : public ValueTest {
 protected:
  static void Fill(Variable& array, uint32_t count) {
    array.SetArraySize(count);
    for (uint32_t i = 1; i <= count; ++i) {
      array.GetArrayElement(i)->SetIntegerValue(static_cast<int32_t>(i * 10));
    }
  }
  static tamber::ArrayData* DataOf(Variable& array) { return tamber::CellOf(array)->a; }
  static std::string Joined(const Variable& array) {
    std::string text;
    for (uint32_t i = 1; i <= array.GetElementCount(); ++i) {
      text += std::to_string(array.GetArrayElement(i)->GetIntegerValue()) + " ";
    }
    return text;
  }
};

TEST_F(Arrays, IndexesCountFromOne) {
  VarIntegerArray a("a", 0);
  EXPECT_EQ(a.GetElementCount(), 0u);
  EXPECT_EQ(a.GetArrayElement(1), nullptr);
  Fill(a, 3);
  EXPECT_EQ(a.GetArrayElement(0), nullptr);
  EXPECT_EQ(a.GetArrayElement(3)->GetIntegerValue(), 30);
  EXPECT_EQ(a.GetArrayElement(4), nullptr);
  EXPECT_EQ(a.GetArrayElement(UINT32_MAX), nullptr);
  a.DeleteArrayElement(0);
  a.DeleteArrayElement(4);
  a.SwapArrayElements(1, 4);
  EXPECT_EQ(a.RemoveArrayElement(4), nullptr);
  EXPECT_EQ(Joined(a), "10 20 30 ");
  a.DeleteArrayElement(1);
  Held<Variable> taken(a.RemoveArrayElement(2));
  EXPECT_EQ(taken->GetIntegerValue(), 30);
  EXPECT_EQ(Joined(a), "20 ");
}

TEST_F(Arrays, SizesAreSafe) {
  VarIntegerArray a("a", 0);
  a.AdjustArraySize(3);
  EXPECT_EQ(Joined(a), "0 0 0 ");
  a.AdjustArraySize(-2);
  EXPECT_EQ(a.GetElementCount(), 1u);
  a.AdjustArraySize(INT_MIN);
  EXPECT_EQ(a.GetElementCount(), 0u);
  Fill(a, 2);
  EXPECT_EQ(tamber::Resize(tamber::PlaceOf(a), INT64_C(0x200000000)), tamber::Stored::NoMemory);
  EXPECT_EQ(Joined(a), "10 20 ");
  EXPECT_EQ(tamber::Resize(tamber::PlaceOf(a), INT64_MIN), tamber::Stored::Done);
  EXPECT_EQ(a.GetElementCount(), 0u);
  VarArray generic("g", 0);
  generic.AdjustArraySize(5);  // nothing says of what
  EXPECT_EQ(generic.GetElementCount(), 0u);
  Fill(a, 3);
  a.SetArraySize(1);
  a.SetArraySize(3);
  EXPECT_EQ(Joined(a), "10 0 0 ");
}

TEST_F(Arrays, EmptyStructuresShareOneValueUntilChanged) {
  VarStruct point("", 0);
  point.SetStructName("Point");
  point.AddStructElement(new VarInteger("x", 0), 1);
  VarStructArray a(&point, "a", 0);
  a.SetArraySize(100000);
  EXPECT_EQ(DataOf(a)->Peek(0).st, DataOf(a)->Peek(1).st);
  a.GetArrayElement(2)->GetStructElement(1)->SetIntegerValue(5);
  EXPECT_EQ(a.GetArrayElement(1)->GetStructElement("X")->GetIntegerValue(), 0);
  EXPECT_EQ(a.GetArrayElement(2)->GetStructElement("X")->GetIntegerValue(), 5);
}

TEST_F(Arrays, CopiesAreSharedUntilOneChanges) {
  VarDoubleArray a("a", 0), b("b", 0);
  a.SetArraySize(2);
  EXPECT_EQ(b.Assign(&a), 1);
  EXPECT_EQ(DataOf(a), DataOf(b));
  b.GetArrayElement(1)->SetDoubleValue(7);
  EXPECT_NE(DataOf(a), DataOf(b));
  EXPECT_EQ(a.GetArrayElement(1)->GetDoubleValue(), 0);
  // An array whose elements somebody holds is copied at once, objects stay with their array.
  EXPECT_EQ(a.Assign(&b), 1);
  EXPECT_NE(DataOf(a), DataOf(b));
  EXPECT_FALSE(DataOf(a)->HasBoxes());
  b.GetArrayElement(1)->SetDoubleValue(8);
  EXPECT_EQ(a.GetArrayElement(1)->GetDoubleValue(), 7);
  Held<Variable> clone(b.Clone());
  b.SetArraySize(0);
  EXPECT_EQ(clone->GetElementCount(), 2u);
}

TEST_F(Arrays, ReferencesFollowTheirElement) {
  VarIntegerArray a("a", 0);
  Fill(a, 3);
  VarReference second(a.GetArrayElement(2));
  DataOf(a)->Put(1, tamber::IntCell(77));  // what `a[2] = 77` does
  EXPECT_EQ(second.GetIntegerValue(), 77);
  second.SetIntegerValue(78);
  EXPECT_EQ(DataOf(a)->Peek(1).i, 78);
  a.SwapArrayElements(2, 3);
  second.SetIntegerValue(79);
  EXPECT_EQ(Joined(a), "10 30 79 ");
  a.DeleteArrayElement(1);
  second.SetIntegerValue(80);
  EXPECT_EQ(Joined(a), "30 80 ");
  EXPECT_EQ(a.Assign(&a), 1);  // keeps its elements
  second.SetIntegerValue(81);
  EXPECT_EQ(Joined(a), "30 81 ");
  a.AdjustArraySize(-1);
  second.SetIntegerValue(82);  // an orphan now
  EXPECT_EQ(second.GetIntegerValue(), 82);
  a.AdjustArraySize(1);
  EXPECT_EQ(Joined(a), "30 0 ");
  // Only one of those that change places has ever been an object.
  VarIntegerArray b("b", 0);
  b.SetArraySize(2);
  VarReference held(b.GetArrayElement(2));
  b.SwapArrayElements(1, 2);
  held.SetIntegerValue(6);
  EXPECT_EQ(Joined(b), "6 0 ");
}

TEST_F(Arrays, AnyDepthOfNestingIsDestroyedDumpedAndCopied) {
  Held<Variable> outer(new VarArray("a", 0));
  for (int i = 0; i < 200000; ++i) {
    auto next = Make<VarArray>("a", 0u);
    ASSERT_EQ(next->AddArrayElement(outer.release()), 1);
    outer.reset(next.release());
  }
  EXPECT_LT(DumpOf(*outer).size(), 100000u);
  // Every level has an object of its own, so that a copy cannot share: refused, not overrun.
  EXPECT_THROW(static_cast<void>(outer->Clone()), std::bad_alloc);
  VarArray target("t", 0);
  EXPECT_EQ(target.Assign(outer.get()), 0);
}

TEST_F(Arrays, AppendingTextGrowsInPlaceAndLeavesOthersAlone) {
  tamber::StrBuf* text = nullptr;
  tamber::AppendText(text, "ab");
  for (int i = 0; i < 10; ++i) tamber::AppendText(text, text->View());  // parts of itself
  EXPECT_EQ(text->length, 2048u);
  EXPECT_GE(text->capacity, text->length + 20);
  tamber::Retain(text);
  tamber::StrBuf* other = text;
  tamber::AppendText(text, "!");
  EXPECT_EQ(other->length, 2048u);
  EXPECT_EQ(text->View().back(), '!');
  EXPECT_EQ(text->View().substr(0, 2048), other->View());
  tamber::Release(text);
  tamber::Release(other);
}

}  // namespace
