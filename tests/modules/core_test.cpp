#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <thread>

#include "modules/functioncaller.h"
#include "values/varref.h"

namespace {

using tamber::VarHolder;
using testing::ElementsAre;

class CoreModule : public FunctionCaller {};

TEST_F(CoreModule, NotANumberComesLast) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const VarHolder mixed = Array<double>("double[]", {nan, 1, -nan, -INFINITY, 0, nan, INFINITY});
  for (const bool ascending : {true, false}) {
    const VarHolder sorted = Call("ArraySort", mixed, ascending);
    std::vector<double> values;
    for (uint32_t i = 1; i <= 4; ++i)
      values.push_back(sorted->GetArrayElement(i)->GetDoubleValue());
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()) == ascending);
    for (uint32_t i = 5; i <= 7; ++i) {
      EXPECT_TRUE(std::isnan(sorted->GetArrayElement(i)->GetDoubleValue()));
    }
  }
  std::vector<float> many;
  std::mt19937 random(3);
  for (int i = 0; i < 5000; ++i) {
    many.push_back(random() % 3 == 0 ? NAN : static_cast<float>(random() % 100));
  }
  EXPECT_EQ(Call("ArraySort", Array<float>("float[]", many), true)->GetElementCount(), 5000u);
}

TEST_F(CoreModule, SeesThroughElementsThatAreReferenced) {
  const VarHolder numbers = Array<int32_t>("int[]", {3, 1, 2});
  const VarHolder reference(new VarReference(numbers->GetArrayElement(2)));
  reference->SetIntegerValue(9);
  EXPECT_THAT(Integers(*Call("ArraySort", numbers, true)), ElementsAre(2, 3, 9));
  EXPECT_EQ(Integer("ArrayFind", numbers, 9, 1), 2);
  EXPECT_THAT(Integers(*Call("ArraySetSize", numbers, 2)), ElementsAre(3, 9));
  reference->SetIntegerValue(3);
  EXPECT_THAT(Integers(*Call("ArrayRemoveDup", numbers)), ElementsAre(3, 2));
}

TEST_F(CoreModule, RandGivesTheSameNumbersEverywhere) {
  std::vector<int32_t> here;
  std::vector<int32_t> there;
  for (int i = 0; i < 4; ++i) here.push_back(Integer("Rand"));
  std::thread([&] {
    for (int i = 0; i < 4; ++i) there.push_back(Integer("Rand"));
  }).join();
  EXPECT_THAT(there, ElementsAre(16838, 5758, 10113, 17515)) << "a thread begins anew";
  for (const int32_t value : here) EXPECT_TRUE(value >= 0 && value <= 32767);
}

}  // namespace
