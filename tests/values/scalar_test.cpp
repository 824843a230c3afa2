#include <bit>
#include <string>

#include "value_testing.h"
#include "values/vararray.h"
#include "values/vardouble.h"
#include "values/varestring.h"
#include "values/varhandle.h"
#include "values/varint.h"
#include "values/varref.h"
#include "values/varstruct.h"

namespace {

class Scalars : public ValueTest {};

TEST_F(Scalars, ReferencesForwardEverythingButTheirIdentity) {
  auto target = Make<VarInteger>("Target", 4u);
  VarReference first("Alias", target.get());
  VarReference second(&first);
  EXPECT_EQ(second.Dereference(), target.get());
  EXPECT_EQ(first.GetVarName(), "Target");
  EXPECT_TRUE(first.OwnName().Equals("alias"));
  EXPECT_EQ(first.GetTypeId(), Variable::Integer);
  second.SetIntegerValue(9);
  EXPECT_EQ(target->GetIntegerValue(), 9);
  EXPECT_EQ(first.GetHandleValue(), reinterpret_cast<void*>(intptr_t{9}));
  EXPECT_EQ(first.GetVarFlags(), 4u);
  first.SetVarFlags(1);
  EXPECT_EQ(target->GetVarFlags(), 1u);
  EXPECT_EQ(DumpOf(first), "Target: type=integer, value=9\r\n");
  VarDouble d("d", 0);
  EXPECT_EQ(d.Assign(&first), 1);
  EXPECT_EQ(d.GetDoubleValue(), 9.0);
  EXPECT_EQ(first.Assign(&d), 1);
  Held<Variable> copy(first.Clone());
  EXPECT_EQ(copy->Dereference(), nullptr);
  target.reset();
  EXPECT_EQ(first.GetIntegerValue(), 9);  // the reference holds it
  VarReference nothing(nullptr);
  EXPECT_EQ(nothing.GetTypeId(), Variable::None);
  EXPECT_EQ(nothing.Assign(&d), 0);
}

template <class T, class... Type>
void ExpectAssigned(const Variable& from, Type&&... type) {
  T source("source", type..., 1);
  ASSERT_EQ(source.Assign(const_cast<Variable*>(&from)), 1);
  T target("target", type..., 2);
  target = source;
  target = *&target;
  source.SetStructName("other");
  source.SetArraySize(0);
  EXPECT_EQ(target.GetVarName(), "target");
  EXPECT_EQ(target.GetVarFlags(), 2u);
  EXPECT_EQ(target.GetIntegerValue(), from.GetIntegerValue());
  EXPECT_STREQ(target.GetStringValue(), from.GetStringValue());
  EXPECT_EQ(target.GetElementCount(), from.GetElementCount());
}

TEST_F(Scalars, AssignmentTakesTheValueOnly) {
  VarInteger number("n", 0);
  number.SetIntegerValue(7);
  VarString text("t", 0);
  text.SetStringValue("secret");
  VarHandle handle("h", "File", 0);
  handle.SetHandleValue(&number);
  VarStringArray array("a", 0);
  array.SetArraySize(3);
  ExpectAssigned<VarInteger>(number);
  ExpectAssigned<VarDouble>(number);
  ExpectAssigned<VarString>(text);
  ExpectAssigned<VarEString>(text);
  ExpectAssigned<VarHandle>(handle, KelString("File"));
  ExpectAssigned<VarStringArray>(array);
  ExpectAssigned<VarArray>(array);
  VarReference reference("r", &number);
  VarInteger other("o", 0);
  reference = VarReference(&other);
  EXPECT_EQ(number.GetIntegerValue(), 0) << "a reference assigns to its target";
  EXPECT_EQ(reference.Dereference(), &number);
}

/// Where a virtual function stands in the table, without the second entry that destructors have.
template <class Function>
long SlotOf(Function function) {
  struct Parts {
    long place;
    long adjustment;
  };
  return (std::bit_cast<Parts>(function).place - 1) / static_cast<long>(sizeof(void*)) - 1;
}

TEST_F(Scalars, SlotsOfTheOperations) {
  EXPECT_EQ(SlotOf(&Variable::Clone), 1);
  EXPECT_EQ(SlotOf(&Variable::Assign), 24);
  EXPECT_EQ(SlotOf(&Variable::GetHandleName), 27) << "behind the two of the sessions";
  EXPECT_EQ(SlotOf(&Variable::DumpType), 47);
  EXPECT_EQ(SlotOf(&VarString::IsEString), 48);
}

class Celsius : public VarDouble {
 public:
  using VarDouble::VarDouble;
  Variable* Clone() const override { return new Celsius(*this); }
  void SetDoubleValue(double value) override { VarDouble::SetDoubleValue(value + 273.15); }
};

TEST_F(Scalars, HostsDeriveFromValueClasses) {
  Celsius warm("warm", Variable::Predefined);
  warm.SetDoubleValue(20);
  const Held<Variable> copy(warm.Clone());
  EXPECT_EQ(copy->GetDoubleValue(), 293.15);
  EXPECT_EQ(copy->GetVarFlags(), 0u);
  copy->SetDoubleValue(0);
  EXPECT_EQ(copy->GetDoubleValue(), 273.15);
}

}  // namespace
