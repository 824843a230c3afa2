#include "kel/filepolicy.h"

#include "kel/dirs.h"
#include "kel/filecopy.h"
#include "kel/fileio.h"
#include "kel/filestat.h"
#include "kel/linefile.h"
#include "tempdir.h"

namespace kel {
namespace {

namespace fs = std::filesystem;

/// box/ is what scripts may touch; outside/ holds a secret.
class FilePolicyTest : public TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    fs::create_directories("box/sub");
    fs::create_directory("outside");
    Put("outside/secret", "secret");
    Put("box/own", "own");
    policy_.SetAccess(Access::None);
    ASSERT_TRUE(policy_.AddDirectory("box", Access::Write));
  }

  bool MayRead(std::string_view path) const {
    std::string text;
    return ReadFile(policy_.Find(path, Access::Read), text, 1000) == FileStatus::Ok;
  }
  FileStatus Write(std::string_view path) const {
    return ReplaceFile(policy_.Find(path, Access::Write), "new");
  }

  FilePolicy policy_;
};

TEST_F(FilePolicyTest, NoPathLeadsOut) {
  fs::create_symlink("../outside/secret", "box/link");
  fs::create_symlink(dir_ + "/outside", "box/dir");
  fs::create_symlink("../outside/new", "box/dangling");
  fs::create_directory("boxed");  // the name of the directory is a prefix of this one
  Put("boxed/file", "x");
  for (const char* path :
       {"outside/secret", "box/../outside/secret", "box/sub/../../outside/secret", "box/link",
        "box/dir/secret", "box\\..\\outside\\secret", "/etc/passwd", "boxed/file", "box/..",
        "box/sub/../../boxed/file", "/proc/self/cwd/outside/secret"}) {
    EXPECT_TRUE(policy_.Find(path, Access::Read).IsRefused()) << path;
    EXPECT_FALSE(MayRead(path)) << path;
  }
  EXPECT_NE(Write("box/dangling"), FileStatus::Ok);
  EXPECT_NE(Write("box/dir/new"), FileStatus::Ok);
  EXPECT_NE(AppendToFile(policy_.Find("box/dangling", Access::Write), "x"), FileStatus::Ok);
  EXPECT_NE(CreatePath(policy_, "outside/a/b"), FileStatus::Ok);
  EXPECT_NE(CreatePath(policy_, "box/dir/a/b"), FileStatus::Ok);
  EXPECT_NE(SetFileMode(policy_.Find("box/link", Access::Write), 0), FileStatus::Ok);
  EXPECT_EQ(Get("outside/secret"), "secret");
  EXPECT_FALSE(fs::exists("outside/new"));
  EXPECT_FALSE(fs::exists("outside/a"));
}

TEST_F(FilePolicyTest, EverythingBelowIsThere) {
  fs::create_symlink(dir_ + "/box/own", "box/sub/inner");
  fs::create_symlink("box", "alias");
  EXPECT_TRUE(MayRead("box/own"));
  EXPECT_TRUE(MayRead("box/sub/inner"));
  EXPECT_TRUE(MayRead("alias/own"));
  EXPECT_EQ(Write("box/sub/new"), FileStatus::Ok);
  EXPECT_EQ(Get("box/sub/new"), "new");
  EXPECT_EQ(CreatePath(policy_, "box/a/b/c"), FileStatus::Ok);
  EXPECT_TRUE(fs::is_directory("box/a/b/c"));
  EXPECT_EQ(SetCurrentDirectory(policy_.Find("box/sub", Access::Read)), FileStatus::Ok);
  EXPECT_TRUE(MayRead("../own"));
  EXPECT_FALSE(MayRead("../../outside/secret"));
  const Place missing = policy_.Find("x/y/z", Access::Read);
  EXPECT_FALSE(missing.IsRefused());
  EXPECT_FALSE(missing.IsFound());
}

TEST_F(FilePolicyTest, LevelsNestAndTheInnermostCounts) {
  ASSERT_TRUE(policy_.AddDirectory("box/sub", Access::Read));
  Put("box/sub/file", "x");
  EXPECT_TRUE(MayRead("box/sub/file"));
  EXPECT_TRUE(policy_.Find("box/sub/file", Access::Write).IsRefused());
  EXPECT_FALSE(policy_.Find("box/own", Access::Write).IsRefused());
  EXPECT_FALSE(policy_.AddDirectory("box/own", Access::Read));
  FilePolicy readOnly;
  readOnly.SetAccess(Access::Read);
  EXPECT_TRUE(readOnly.Find("outside/secret", Access::Read).IsFound());
  EXPECT_TRUE(readOnly.Find("outside/secret", Access::Write).IsRefused());
  readOnly.SetAccess(Access::None);
  EXPECT_TRUE(readOnly.Find("outside/secret", Access::Read).IsRefused());
  EXPECT_TRUE(readOnly.AllowsNetwork());
}

TEST_F(FilePolicyTest, WhatIsOutsideCannotBeTriedOut) {
  fs::create_symlink("../outside", "box/out");
  // Whether there is such a directory or not, and how the path comes to it: all answers are one.
  for (const char* path :
       {"outside/../box/own", "nothing/../box/own", "box/../outside/../box/own",
        "box/../nothing/../box/own", "box/out/../box/own", "outside/a/../../box/own"}) {
    EXPECT_TRUE(policy_.Find(path, Access::Read).IsRefused()) << path;
  }
  EXPECT_TRUE(MayRead("box/../box/own"));
  EXPECT_TRUE(MayRead("box/sub/../own"));
  EXPECT_TRUE(MayRead(dir_ + "/../" + fs::path(dir_).filename().string() + "/box/own"));
  EXPECT_FALSE(MayRead("box/own/"));
  EXPECT_EQ(Write("box/own/x"), FileStatus::Missing);
}

TEST_F(FilePolicyTest, DirectoriesThatHoldOthersOfThePolicyStay) {
  fs::create_directories("box/sub/safe");
  Put("box/sub/safe/file", "x");
  ASSERT_TRUE(policy_.AddDirectory("box/sub/safe", Access::Read));
  for (const char* path : {"box", "box/sub", "box/sub/", "box/sub/safe"}) {
    EXPECT_TRUE(policy_.Find(path, Access::Write, Links::Keep).IsRefused()) << path;
  }
  EXPECT_TRUE(policy_.Find("box/own", Access::Write, Links::Keep).IsFound());
  FilePolicy all;
  ASSERT_TRUE(all.AddDirectory("box/sub/safe", Access::None));
  EXPECT_TRUE(all.Find("box", Access::Write, Links::Keep).IsRefused());
}

TEST_F(FilePolicyTest, ALinkThatIsPutThereAfterwardsIsNotFollowed) {
  const Place file = policy_.Find("box/own", Access::Write);
  const Place inSub = policy_.Find("box/sub/new", Access::Write);
  fs::remove("box/own");
  fs::create_symlink(dir_ + "/outside/secret", "box/own");
  fs::rename("box/sub", "box/moved");
  fs::create_symlink(dir_ + "/outside", "box/sub");
  std::string text;
  EXPECT_NE(ReadFile(file, text, 1000), FileStatus::Ok);
  EXPECT_NE(AppendToFile(file, "x"), FileStatus::Ok);
  EXPECT_EQ(ReplaceFile(inSub, "new"), FileStatus::Ok);
  EXPECT_FALSE(fs::exists("outside/new"));
  EXPECT_EQ(Get("box/moved/new"), "new");
  EXPECT_EQ(Get("outside/secret"), "secret");
}

TEST_F(FilePolicyTest, LinksThemselvesCanBeMovedAndDeleted) {
  fs::create_symlink(dir_ + "/outside", "box/ln");
  EXPECT_EQ(Move(policy_.Find("box/ln/", Access::Write, Links::Keep),
                 policy_.Find("box/l2", Access::Write, Links::Keep)),
            FileStatus::Ok);
  EXPECT_NE(DeleteDirectory(policy_.Find("box/l2/", Access::Write, Links::Keep), true),
            FileStatus::Ok);
  EXPECT_EQ(DeleteFile(policy_.Find("box/l2", Access::Write, Links::Keep), false), FileStatus::Ok);
  EXPECT_EQ(Get("outside/secret"), "secret");
}

}  // namespace
}  // namespace kel
