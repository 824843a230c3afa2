#include "kel/dirs.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "kel/filecopy.h"
#include "kel/fileio.h"
#include "kel/filestat.h"
#include "kel/gzip.h"
#include "tempdir.h"

namespace kel {
namespace {

namespace fs = std::filesystem;

class DirsTest : public TempDirTest {};

Place Named(std::string_view path) { return FilePolicy().Find(path, Access::Write, Links::Keep); }

TEST_F(DirsTest, DeletingATreeStaysInIt) {
  fs::create_directories("tree/a/b");
  fs::create_directory("keep");
  Put("keep/file", "x");
  Put("tree/a/file", "x");
  fs::create_directory_symlink(dir_ + "/keep", "tree/a/link");
  fs::create_directory_symlink("..", "tree/a/b/up");
  fs::create_symlink("nowhere", "tree/dangling");
  ASSERT_EQ(::mkfifo("tree/pipe", 0600), 0);
  EXPECT_EQ(DeleteDirectory(Named("tree"), false), FileStatus::Exists);
  EXPECT_EQ(DeleteDirectory(Named("tree"), true), FileStatus::Ok);
  EXPECT_FALSE(fs::exists("tree"));
  EXPECT_TRUE(fs::exists("keep/file"));
  fs::create_directory_symlink("keep", "ln");
  for (const char* path : {"ln", "ln/", "/", ".", "..", "keep/.", "keep/..", "//"}) {
    EXPECT_NE(DeleteDirectory(Named(path), true), FileStatus::Ok) << path;
  }
  EXPECT_TRUE(fs::exists("keep/file"));
}

TEST_F(DirsTest, NoDepthIsTooDeep) {
  for (int i = 0; i < 2100; ++i) {  // more than a path can name
    ASSERT_EQ(::mkdir("d", 0700), 0);
    ASSERT_EQ(::chdir("d"), 0);
  }
  Put("file", "0123456789");
  fs::current_path(dir_);
  uint64_t bytes = 0;
  EXPECT_EQ(TreeSize(FilePolicy(), Named("d"), bytes), FileStatus::Ok);
  EXPECT_EQ(bytes, 10U);
  EXPECT_EQ(MoveByCopy(Named("d"), Named("e")), FileStatus::Ok);
  EXPECT_FALSE(fs::exists("d"));
  EXPECT_EQ(TreeSize(FilePolicy(), Named("e"), bytes), FileStatus::Ok);
  EXPECT_EQ(bytes, 10U);
  EXPECT_EQ(DeleteDirectory(Named("e"), true), FileStatus::Ok);
  EXPECT_FALSE(fs::exists("e"));
}

TEST_F(DirsTest, SizesLeaveOutWhatThePolicyHides) {
  fs::create_directories("tree/hidden");
  Put("tree/one", "12345");
  Put("tree/hidden/two", "123");
  FilePolicy policy;
  ASSERT_TRUE(policy.AddDirectory("tree/hidden", Access::None));
  uint64_t bytes = 0;
  EXPECT_EQ(TreeSize(policy, policy.Find("tree", Access::Read), bytes), FileStatus::Ok);
  EXPECT_EQ(bytes, 5U);
}

TEST_F(DirsTest, MovingNeverReplaces) {
  Put("one", "1");
  Put("two", "2");
  fs::create_directories("dir/sub");
  EXPECT_EQ(Move(Named("one"), Named("two")), FileStatus::Exists);
  EXPECT_EQ(Move(Named("one"), Named("one")), FileStatus::Exists);
  EXPECT_EQ(Move(Named("dir"), Named("dir/sub/dir")), FileStatus::Failed);
  EXPECT_EQ(Move(Named("nothing"), Named("x")), FileStatus::Missing);
  EXPECT_EQ(Move(Named("one"), Named("dir/one")), FileStatus::Ok);
  EXPECT_EQ(Move(Named("dir"), Named("renamed")), FileStatus::Ok);
  EXPECT_EQ(Get("renamed/one"), "1");
  EXPECT_EQ(MoveByCopy(Named("renamed"), Named("two")), FileStatus::Exists);
  EXPECT_EQ(MoveByCopy(Named("renamed"), Named("renamed/sub/in")), FileStatus::Failed);
  EXPECT_TRUE(fs::is_empty("renamed/sub"));
  const std::string longest(255, 'n');
  EXPECT_EQ(MoveByCopy(Named("renamed"), Named(longest)), FileStatus::Ok);
  EXPECT_EQ(MoveByCopy(Named(longest), Named("renamed")), FileStatus::Ok);
  EXPECT_EQ(Get("renamed/one"), "1");
  EXPECT_EQ(Get("two"), "2");
}

TEST_F(DirsTest, AcrossFileSystemsTheWholeTreeArrives) {
  std::string pattern = "/dev/shm/tamber-kel-XXXXXX";
  struct stat here;
  struct stat there;
  if (::mkdtemp(pattern.data()) == nullptr) GTEST_SKIP() << "no second file system";
  ASSERT_EQ(::stat(".", &here), 0);
  ASSERT_EQ(::stat(pattern.c_str(), &there), 0);
  if (here.st_dev == there.st_dev) GTEST_SKIP() << "one file system only";
  fs::create_directories("tree/sub");
  Put("tree/sub/file", std::string(300000, 'x'));
  ASSERT_EQ(::chmod("tree/sub/file", 0640), 0);
  fs::create_symlink("sub/file", "tree/link");
  const std::string target = pattern + "/tree";
  EXPECT_EQ(Move(Named("tree"), Named(target)), FileStatus::Ok);
  EXPECT_FALSE(fs::exists("tree"));
  EXPECT_EQ(Get(target + "/link"), std::string(300000, 'x'));
  EXPECT_TRUE(fs::is_symlink(target + "/link"));
  struct stat info;
  ASSERT_EQ(::stat((target + "/sub/file").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640U);
  // What cannot be copied whole stays where it is, and leaves nothing behind.
  ASSERT_EQ(::mkfifo((target + "/pipe").c_str(), 0600), 0);
  EXPECT_EQ(Move(Named(target), Named("back")), FileStatus::NotValid);
  EXPECT_TRUE(fs::exists(target + "/sub/file"));
  EXPECT_TRUE(fs::is_empty("."));
  // Nor is anything begun that could not be ended.
  const fs::path before = fs::current_path();
  fs::current_path(target + "/sub");
  for (const char* path : {".", "..", "../sub/.", "/"}) {
    EXPECT_EQ(Move(Named(path), Named((before / "x").string())), FileStatus::Failed) << path;
  }
  fs::current_path(before);
  EXPECT_TRUE(fs::is_empty("."));
  fs::remove_all(pattern);
}

TEST_F(DirsTest, AFullDiskLeavesTheOldFile) {
  // A limit on file sizes fails like a full disk, in the middle of a write.
  Put("file", "old");
  std::string noise;
  for (uint32_t i = 0, x = 1; i < 100000; ++i)
    noise += static_cast<char>((x = x * 1664525 + 1013904223) >> 24);
  fs::create_directory("tree");
  Put("tree/noise", noise);
  const pid_t child = ::fork();
  if (child == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{65536, 65536};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    const FileStatus replaced = ReplaceFile(Named("file"), std::string(100000, 'x'));
    const FileStatus appended = AppendToFile(Named("file"), std::string(100000, 'x'));
    uint64_t size = 0;
    const FileStatus packed = CompressFile(Named("tree/noise"), Named("packed"), size);
    const bool hasReason = TakeReason() == ": File too large";
    const FileStatus moved = MoveByCopy(Named("tree"), Named("moved"));
    const bool hasReasonToo = TakeReason() == ": File too large";
    ::_exit(replaced == FileStatus::Unwritable && appended == FileStatus::Unwritable &&
                    packed == FileStatus::Unwritable && hasReason && moved == FileStatus::Failed &&
                    hasReasonToo
                ? 0
                : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Get("file"), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator("."), fs::directory_iterator()), 2);
}

}  // namespace
}  // namespace kel
