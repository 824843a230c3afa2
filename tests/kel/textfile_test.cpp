#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kel/fileio.h"
#include "kel/gzip.h"
#include "kel/linefile.h"
#include "tempdir.h"

namespace kel {
namespace {

namespace fs = std::filesystem;

class TextFileTest : public TempDirTest {};

TEST_F(TextFileTest, RewritingKeepsModeOwnerAndLinks) {
  Put("file", "one\n");
  ASSERT_EQ(::chmod("file", 0604), 0);
  const bool mayGive = ::chown("file", 12345, 23456) == 0;
  fs::create_symlink("file", "link");
  LineFile lines;
  ASSERT_EQ(LineFile::Load(Place("link"), lines), FileStatus::Ok);
  lines.Add("two");
  ASSERT_EQ(lines.Save(Place("link")), FileStatus::Ok);
  EXPECT_TRUE(fs::is_symlink("link"));
  EXPECT_EQ(Get("file"), "one\ntwo\n");
  struct stat info;
  ASSERT_EQ(::stat("file", &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0604U);
  if (mayGive) {
    EXPECT_EQ(info.st_uid, 12345U);
    EXPECT_EQ(info.st_gid, 23456U);
  }
  ASSERT_EQ(::mkfifo("pipe", 0600), 0);
  for (const char* path : {"pipe", ".", "/dev/zero"}) {
    EXPECT_EQ(LineFile::Load(Place(path), lines), FileStatus::NotValid) << path;
    EXPECT_EQ(lines.Save(Place(path)), FileStatus::NotValid) << path;
  }
  EXPECT_EQ(LineFile::Load(Place(std::string(100000, 'x')), lines), FileStatus::Missing);
  EXPECT_EQ(LineFile::Load(Place(std::string_view("file\0", 5)), lines), FileStatus::Missing);
}

TEST_F(TextFileTest, DamagedArchivesAndBombsLeaveNothing) {
  Put("zeros", std::string(4000000, '\0'));
  uint64_t size = 0;
  ASSERT_EQ(CompressFile(Place("zeros"), Place("packed"), size), FileStatus::Ok);
  const std::string packed = Get("packed");
  Put("out", "old");
  EXPECT_EQ(DecompressFile(Place("packed"), Place("out"), size, {1000000, 100}),
            FileStatus::TooLarge);
  for (size_t cut = 0; cut < packed.size(); cut += cut < 40 ? 1 : 97) {
    Put("cut", packed.substr(0, cut));
    EXPECT_EQ(DecompressFile(Place("cut"), Place("out"), size), FileStatus::Damaged) << cut;
  }
  for (const size_t at : {packed.size() - 6, packed.size() / 2}) {
    std::string wrong = packed;
    wrong[at] = static_cast<char>(wrong[at] ^ 0x55);
    Put("cut", wrong);
    EXPECT_EQ(DecompressFile(Place("cut"), Place("out"), size), FileStatus::Damaged) << at;
  }
  EXPECT_EQ(Get("out"), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator("."), fs::directory_iterator()), 4);
}

}  // namespace
}  // namespace kel
