#include "kel/pathparser.h"

#include "kel/filepolicy.h"
#include "tempdir.h"

namespace {

using PathSearchTest = TempDirTest;

TEST_F(PathSearchTest, CompletesAndSearches) {
  EXPECT_EQ(kel::CompletePath(""), dir_);
  EXPECT_EQ(kel::CompletePath("."), dir_);
  EXPECT_EQ(kel::CompletePath("a\\..\\b.tam"), dir_ + "/b.tam");
  EXPECT_EQ(kel::CompletePath("/x/../y"), "/y");
  EXPECT_EQ(kel::CompletePath("C:\\y"), "C:/y");

  std::filesystem::create_directories("one/lib.so");
  std::filesystem::create_directories("two/deep");
  Put("two/lib.so", "");
  Put("two/deep/lib.so", "");
  const std::string hit = dir_ + "/two/lib.so";
  bool refused = true;
  const auto search = [&](std::string_view name, std::string_view dirs, const auto& policy) {
    return kel::PathSearch(name, dirs, policy, refused);
  };
  EXPECT_EQ(search("lib.so", "one;;missing; two ;two/deep", kel::FilePolicy()), hit);
  EXPECT_EQ(search("lib.so", "one\\..\\two\\;two/deep", kel::FilePolicy()), hit);
  EXPECT_EQ(search("deep\\lib.so", "one;two", kel::FilePolicy()), dir_ + "/two/deep/lib.so");
  EXPECT_EQ(search(hit, "", kel::FilePolicy()), hit);
  EXPECT_EQ(search("lib.so", "one", kel::FilePolicy()), "");
  EXPECT_EQ(search("lib.so", "", kel::FilePolicy()), "");
  EXPECT_EQ(search("", "two", kel::FilePolicy()), "");
  EXPECT_EQ(search("/missing/lib.so", "two", kel::FilePolicy()), "");
  EXPECT_FALSE(refused);
  // Where nothing may be read, what is there and what is not are the same.
  kel::FilePolicy policy;
  policy.SetAccess(kel::Access::None);
  ASSERT_TRUE(policy.AddDirectory("two/deep", kel::Access::Read));
  EXPECT_EQ(search("lib.so", "two;two/deep", policy), dir_ + "/two/deep/lib.so");
  EXPECT_FALSE(refused);
  for (const char* name : {"lib.so", "none.so"}) {
    EXPECT_EQ(search(name, "two", policy), "");
    EXPECT_TRUE(refused);
    EXPECT_EQ(search(dir_ + "/two/" + name, "two/deep", policy), "");
    EXPECT_TRUE(refused);
  }
  EXPECT_EQ(search("none.so", "two;two/deep", policy), "");
  EXPECT_FALSE(refused);
}

}  // namespace
