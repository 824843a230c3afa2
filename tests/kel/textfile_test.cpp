#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "kel/codepage.h"
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

TEST(LineFile, AddedTextFitsIn) {
  LineFile file;
  EXPECT_EQ(file.Count(), 0U);
  EXPECT_TRUE(file.Insert(1, "first"));
  EXPECT_EQ(file.Text(), "first\n");
  EXPECT_TRUE(file.Insert(1, "a\nb"));
  EXPECT_EQ(file.Count(), 3U);
  EXPECT_TRUE(file.Add(""));
  EXPECT_EQ(file.Text(), "a\nb\nfirst\n\n");
  EXPECT_EQ(LineOf(file, 4), "");
  LineFile bytes(std::string("x\0y\r\r\n\n", 7));
  EXPECT_EQ(bytes.Count(), 2U);
  EXPECT_EQ(LineOf(bytes, 1), std::string("x\0y\r", 4));
}

TEST(LineFile, EmptyLinesBehindAnOpenOneAreLines) {
  LineFile file("one");
  EXPECT_TRUE(file.Add(""));
  EXPECT_EQ(file.Count(), 2U);
  EXPECT_EQ(LineOf(file, 2), "");
  EXPECT_TRUE(file.Add("two"));
  EXPECT_EQ(file.Text(), "one\n\ntwo\n");
  LineFile windows("a\r\nb");
  EXPECT_TRUE(windows.Insert(3, "c\n"));
  EXPECT_EQ(windows.Count(), 4U);
  EXPECT_EQ(windows.Text(), "a\r\nb\r\nc\n\r\n");
}

TEST(LineFile, LinesAreTakenFromTheStartAsFastAsFromTheEnd) {
  constexpr int kLines = 300000;
  std::string text;
  for (int i = 0; i < kLines; ++i) text += "line\n";
  LineFile file(text);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kLines; ++i) {
    file.Delete(1);
    if (i % 3 == 0) file.Add(std::to_string(i));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(file.Count(), 100000U);
  EXPECT_EQ(LineOf(file, 1), "0");
  EXPECT_EQ(LineOf(file, 100000), "299997");
  EXPECT_EQ(file.Text().substr(0, 8), "0\n3\n6\n9\n");
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

TEST_F(TextFileTest, SingleLinesOfAFile) {
  uint64_t count = 0;
  for (const std::string& text :
       {std::string(), std::string("one"), std::string("one\n"), std::string("\n\r\n\r"),
        std::string("one\r\ntwo\nthree"), std::string("\0\n\0", 3)}) {
    Put("file", text);
    const LineFile lines(text);
    ASSERT_EQ(LineFile::CountLines(Place("file"), count), FileStatus::Ok);
    EXPECT_EQ(count, lines.Count());
    for (const int32_t line : {INT32_MIN, -1, 0, 1, 2, 3, 4, INT32_MAX}) {
      std::string found = "?";
      bool isThere = false;
      ASSERT_EQ(LineFile::GetLine(Place("file"), line, found, isThere), FileStatus::Ok);
      EXPECT_EQ(isThere ? found : "none", LineOf(lines, line)) << text << line;
    }
  }
  // More lines than anybody should hold in memory, which are no trouble to count.
  Put("many", std::string(LineFile::kMaxLines + 1, '\n'));
  LineFile lines;
  EXPECT_EQ(LineFile::Load(Place("many"), lines), FileStatus::TooLarge);
  EXPECT_EQ(LineFile::CountLines(Place("many"), count), FileStatus::Ok);
  EXPECT_EQ(count, LineFile::kMaxLines + 1);
}

TEST_F(TextFileTest, CompressedFilesComeBack) {
  std::string text;
  for (int i = 0; i < 40000; ++i) text += std::to_string(i * 7919) + "\n";
  Put("plain", text);
  uint64_t packed = 0;
  uint64_t size = 0;
  ASSERT_EQ(CompressFile(Place("plain"), Place("packed"), packed), FileStatus::Ok);
  EXPECT_EQ(packed, fs::file_size("packed"));
  EXPECT_LT(packed, text.size() / 2);
  ASSERT_EQ(DecompressFile(Place("packed"), Place("back"), size), FileStatus::Ok);
  EXPECT_EQ(size, text.size());
  EXPECT_EQ(Get("back"), text);
  Put("two", Get("packed") + Get("packed"));  // what "cat a.gz b.gz" makes
  ASSERT_EQ(DecompressFile(Place("two"), Place("back"), size), FileStatus::Ok);
  EXPECT_EQ(Get("back"), text + text);
  Put("empty", "");
  ASSERT_EQ(CompressFile(Place("empty"), Place("packed"), packed), FileStatus::Ok);
  ASSERT_EQ(DecompressFile(Place("packed"), Place("back"), size), FileStatus::Ok);
  EXPECT_EQ(size, 0U);
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

TEST(CodePage, NumbersNamesAndWhatCannotBeSaid) {
  std::string out;
  EXPECT_EQ(CodePageName("1252"), "CP1252");
  EXPECT_EQ(CodePageName("28605"), "ISO-8859-15");
  EXPECT_EQ(CodePageName(" 65001 "), "UTF-8");
  EXPECT_EQ(CodePageName("latin1"), "latin1");
  EXPECT_EQ(CodePageName("037"), "CP037");
  for (const char* page : {"", "0", "99999", "nonsense", "UTF-8//IGNORE", "CP1252//TRANSLIT"}) {
    EXPECT_EQ(CodePageName(page), "") << page;
  }
  EXPECT_TRUE(ConvertCodePage("\xC3\xA9\xE2\x82\xAC", "UTF-8", "CP1252", out));
  EXPECT_EQ(out, "\xE9\x80");
  EXPECT_TRUE(ConvertCodePage("\xE9\x80", "CP1252", "UTF-8", out));
  EXPECT_EQ(out, "\xC3\xA9\xE2\x82\xAC");
  EXPECT_FALSE(ConvertCodePage("\xE4\xB8\xAD", "UTF-8", "CP1252", out));
  EXPECT_FALSE(ConvertCodePage("\xC3", "UTF-8", "CP1252", out));
  EXPECT_FALSE(ConvertCodePage("\xFF", "UTF-8", "UTF-16LE", out));
  EXPECT_EQ(out, "");
  std::string large(100000, 'a');
  EXPECT_TRUE(ConvertCodePage(large, "UTF-8", CodePageName("1200"), out));
  EXPECT_EQ(out.size(), 200000U);
}

}  // namespace
}  // namespace kel
