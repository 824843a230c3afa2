#include "kel/fileio.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kel/filecopy.h"
#include "kel/filestat.h"
#include "kel/gzip.h"
#include "kel/rotate.h"
#include "tempdir.h"

namespace kel {
namespace {

namespace fs = std::filesystem;

class FileIoTest : public TempDirTest {
 protected:
  static uint32_t ModeOf(int descriptor) {
    struct stat info;
    return ::fstat(descriptor, &info) == 0 ? info.st_mode & 07777 : 0;
  }
};

TEST_F(FileIoTest, AFileIsReadAsLongAsItWasWhenOpened) {
  Put("file", "abc");
  Descriptor file;
  uint64_t size = 0;
  ASSERT_EQ(OpenRegular(Place("file"), file, size), FileStatus::Ok);
  Put("file", "abcdef");  // somebody goes on writing
  FileReader reader(file.Get(), size);
  std::string bytes(8, '-');
  EXPECT_EQ(reader.Read(bytes.data(), 2), 2);
  EXPECT_EQ(reader.Read(bytes.data() + 2, 6), 1);
  EXPECT_EQ(reader.Read(bytes.data(), 8), 0);
  EXPECT_EQ(bytes, "abc-----");
  ::lseek(file.Get(), 0, SEEK_SET);
  EXPECT_EQ(ReadAll(file.Get(), size, bytes, 3), FileStatus::Ok);
  EXPECT_EQ(bytes, "abc");
  ::lseek(file.Get(), 0, SEEK_SET);
  const Descriptor copy(::open("copy", O_RDWR | O_CREAT, 0600));
  FileStatus status = FileStatus::Ok;
  EXPECT_TRUE(CopyContents(file.Get(), size, copy.Get(), status));
  EXPECT_EQ(Get("copy"), "abc");
  ::lseek(file.Get(), 0, SEEK_SET);
  ::lseek(copy.Get(), 0, SEEK_SET);
  EXPECT_TRUE(SameContents(file.Get(), copy.Get(), size, status));
  Put("file", "a");  // or takes away what was there
  ::lseek(file.Get(), 0, SEEK_SET);
  EXPECT_EQ(ReadAll(file.Get(), size, bytes, 3), FileStatus::Ok);
  EXPECT_EQ(bytes, "a");
}

TEST_F(FileIoTest, APrivateFileStaysPrivate) {
  const mode_t before = ::umask(022);
  Put("secret", "secret");
  ASSERT_EQ(::chmod("secret", 0600), 0);
  {
    // While it is written, too.
    ReplacedFile file;
    ASSERT_EQ(file.Open(Place("secret")), FileStatus::Ok);
    EXPECT_EQ(ModeOf(file.Get()), 0600U);
    ReplacedFile copy;
    ASSERT_EQ(copy.Open(Place("copy"), ReplacedFile::Mode::CreateNew, 0640), FileStatus::Ok);
    EXPECT_EQ(ModeOf(copy.Get()), 0600U);
    EXPECT_EQ(copy.Commit(), FileStatus::Ok);
  }
  uint64_t written = 0;
  EXPECT_EQ(CompressFile(Place("secret"), Place("packed"), written), FileStatus::Ok);
  EXPECT_EQ(DecompressFile(Place("packed"), Place("unpacked"), written), FileStatus::Ok);
  ASSERT_EQ(::chmod("secret", 04500), 0);
  EXPECT_EQ(CopyFile(Place("secret"), Place("other"), false), FileStatus::Ok);
  for (const auto& [name, mode] : {std::pair("copy", 0640U), std::pair("packed", 0600U),
                                   std::pair("unpacked", 0600U), std::pair("other", 0500U)}) {
    EXPECT_EQ(GetFileStat(Place(name)).mode, mode) << name;
  }
  EXPECT_EQ(ReplaceFile(Place("usual"), "x"), FileStatus::Ok);
  EXPECT_EQ(GetFileStat(Place("usual")).mode, 0644U);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chmod("secret", 0), 0);
    EXPECT_EQ(CopyFile(Place("secret"), Place("none"), false), FileStatus::Ok);
    EXPECT_EQ(GetFileStat(Place("none")).mode, 0U);
  }
  ::umask(before);
}

TEST_F(FileIoTest, OnlyFilesGiveWayToAnotherLog) {
  const auto rotated = [] {
    Put("log", "full");
    RotateFile(Place("log"), 4, 2, 1);
    return !fs::exists("log");
  };
  Put("log.1", "old");
  EXPECT_TRUE(rotated());
  EXPECT_EQ(Get("log.1") + Get("log.2"), "fullold");
  fs::remove("log.2");
  fs::create_directory("log.2");
  EXPECT_FALSE(rotated());
  EXPECT_EQ(Get("log.1"), "full");
}

}  // namespace
}  // namespace kel
