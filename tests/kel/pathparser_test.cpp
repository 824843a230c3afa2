#include "kel/pathparser.h"

#include "kel/filepolicy.h"
#include "tempdir.h"

namespace {

TEST(PathParser, TakesPathsApartAndPutsThemTogether) {
  struct Row {
    const char *path, *drive, *dir, *root, *ext;
  };
  for (const Row& row : std::initializer_list<Row>{{"C:\\a\\b.txt", "C:", "\\a\\", "b", ".txt"},
                                                   {"/a/b.tar.gz", "", "/a/", "b.tar", ".gz"},
                                                   {"/b", "", "/", "b", ""},
                                                   {"./tamber.ini", "", "./", "tamber", ".ini"},
                                                   {"a\\b/c.d\\e", "", "a\\b/c.d\\", "e", ""},
                                                   {"c:x.tam", "c:", "", "x", ".tam"},
                                                   {"1:x", "", "", "1:x", ""},
                                                   {"C:", "C:", "", "", ""},
                                                   {".rc", "", "", "", ".rc"},
                                                   {"a.", "", "", "a", "."},
                                                   {"a/..", "", "a/", "..", ""},
                                                   {"a/", "", "a/", "", ""},
                                                   {"", "", "", "", ""}}) {
    const PathParser parser(row.path);
    EXPECT_EQ(parser.GetDrive(), row.drive) << row.path;
    EXPECT_EQ(parser.GetDir(), row.dir) << row.path;
    EXPECT_EQ(parser.GetFileRoot(), row.root) << row.path;
    EXPECT_EQ(parser.GetFileExt(), row.ext) << row.path;
    EXPECT_EQ(parser.GetPath(), row.path);
  }
}

TEST(Path, ResolvesByTextAlone) {
  struct Row {
    const char *path, *resolved;
  };
  for (const Row& row : std::initializer_list<Row>{{"/a/./b/../c", "/a/c"},
                                                   {"/..", "/"},
                                                   {"/../../a", "/a"},
                                                   {"../a/..", ".."},
                                                   {"../../a", "../../a"},
                                                   {"a/..", "."},
                                                   {"./a", "a"},
                                                   {"a//b\\\\c", "a/b/c"},
                                                   {"a/b/", "a/b/"},
                                                   {"a/b/..", "a"},
                                                   {"...", "..."},
                                                   {"C:\\a\\..\\b", "C:/b"},
                                                   {"C:\\..\\b", "C:/b"},
                                                   {"C:a\\..\\..", "C:.."},
                                                   {"./c:x", "./c:x"},
                                                   {"a/../c:x/..", "."},
                                                   {"//", "/"},
                                                   {"", ""}}) {
    EXPECT_EQ(kel::ResolvePath(row.path), row.resolved) << row.path;
    EXPECT_EQ(kel::ResolvePath(row.resolved), row.resolved);
  }
  EXPECT_TRUE(kel::PathIsRelative("a") && kel::PathIsRelative("") && kel::PathIsRelative("1:"));
  EXPECT_FALSE(kel::PathIsRelative("\\a") || kel::PathIsRelative("/a") ||
               kel::PathIsRelative("c:a"));
}

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
