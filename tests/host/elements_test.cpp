#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "tamber.h"

namespace {

class Elements : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(
        context_.CompileScriptBuffer("test.tam",
                                     "int[] ints\ndouble[] reals\nstring[] words\narray any\n"
                                     "proc Fill()\n ints <<= 4\n ints <<= 5\n ints <<= 6\n"
                                     " reals <<= 1.5\n reals <<= 2.5\n words <<= \"a\\x00b\"\n"
                                     " any <<= 7\n any <<= 2.5\nendproc\n",
                                     1),
        1);
    ASSERT_EQ(context_.RunProcedure("Fill", nullptr), 1);
  }
  Variable& Global(const char* name) { return *context_.GetVariable(name, VARLIST_GLOBAL); }

  TamberContext context_;
};

TEST_F(Elements, AreCopiedAndConverted) {
  std::array<int32_t, 4> ints{};
  EXPECT_EQ(tamber::CopyElements(Global("ints"), 2, ints), 2u);
  EXPECT_EQ(ints, (std::array{5, 6, 0, 0}));
  EXPECT_EQ(tamber::CopyElements(Global("reals"), 1, std::span(ints).first(1)), 1u);
  EXPECT_EQ(ints[0], 1);
  std::array<double, 4> reals{};
  EXPECT_EQ(tamber::CopyElements(Global("reals"), 1, reals), 2u);
  EXPECT_EQ(reals[1], 2.5);
  // Also of an element that the host holds.
  Variable* held = Global("ints").GetArrayElement(2)->Duplicate();
  held->SetIntegerValue(50);
  EXPECT_EQ(tamber::CopyElements(Global("ints"), 1, reals), 3u);
  EXPECT_EQ(reals[1], 50.0);
  EXPECT_FALSE(tamber::BorrowInts(Global("ints")));
  Variable::Delete(held);
  for (const uint32_t first : {0u, 4u})
    EXPECT_EQ(tamber::CopyElements(Global("ints"), first, ints), 0u);
  for (const char* name : {"words", "ErrCode"})
    EXPECT_EQ(tamber::CopyElements(Global(name), 1, ints), 0u) << name;
}

TEST_F(Elements, AreBorrowedWhereTheyLie) {
  const auto ints = tamber::BorrowInts(Global("ints"));
  ASSERT_TRUE(ints);
  EXPECT_EQ(std::vector<int32_t>(ints->begin(), ints->end()), (std::vector{4, 5, 6}));
  EXPECT_EQ(tamber::BorrowDoubles(Global("reals"))->back(), 2.5);
  EXPECT_FALSE(tamber::BorrowFloats(Global("reals")));
  for (const char* name : {"words", "any", "ErrCode"})
    EXPECT_FALSE(tamber::BorrowInts(Global(name))) << name;
  EXPECT_EQ(tamber::BorrowString(Global("words"), 1)->size(), 3u);
  EXPECT_FALSE(tamber::BorrowString(Global("words"), 2));
  EXPECT_FALSE(tamber::BorrowString(Global("ints"), 1));
}

}  // namespace
