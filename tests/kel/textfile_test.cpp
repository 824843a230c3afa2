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

std::string LineOf(const LineFile& file, int32_t line) {
  std::string_view text;
  return file.Get(line, text) ? std::string(text) : "none";
}

TEST(LineFile, EachLineKeepsItsEnd) {
  LineFile file("one\r\ntwo\nthree");
  EXPECT_EQ(file.Count(), 3U);
  EXPECT_EQ(LineOf(file, 1), "one");
  EXPECT_EQ(LineOf(file, 2), "two");
  EXPECT_EQ(LineOf(file, 3), "three");
  for (const int32_t line : {0, -1, 4, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(LineOf(file, line), "none");
    EXPECT_FALSE(file.Delete(line));
  }
  EXPECT_FALSE(file.Insert(5, "x"));
  EXPECT_FALSE(file.IsChanged());
  EXPECT_TRUE(file.Insert(2, "new"));
  EXPECT_TRUE(file.Add("last"));
  EXPECT_EQ(file.Text(), "one\r\nnew\r\ntwo\nthree\r\nlast");
  EXPECT_TRUE(file.Delete(1));
  EXPECT_TRUE(file.Delete(4));
  EXPECT_EQ(file.Text(), "new\r\ntwo\nthree\r\n");
}

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
