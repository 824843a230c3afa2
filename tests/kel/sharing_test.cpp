#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "kel/cow.h"

namespace {

using testing::ElementsAre;

TEST(CowTest, CopiesShareUntilOneOfThemWrites) {
  kel::Cow<std::vector<int>> first;
  first.Write().push_back(1);
  kel::Cow<std::vector<int>> second = first;
  EXPECT_TRUE(first.SharesWith(second));
  first.Write().push_back(2);
  EXPECT_FALSE(first.SharesWith(second));
  EXPECT_THAT(first.Read(), ElementsAre(1, 2));
  EXPECT_THAT(second.Read(), ElementsAre(1));
  // The value that the other one let go of is still not written in place before it is copied.
  second.Write().push_back(3);
  second = first;
  second = *&second;
  second.Write().clear();
  EXPECT_THAT(first.Read(), ElementsAre(1, 2));
}

}  // namespace
