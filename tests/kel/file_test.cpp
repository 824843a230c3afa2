#include "kel/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <thread>

#include "tempdir.h"

namespace {

using kel::ReadStatus;
using namespace std::string_view_literals;

using FileTest = TempDirTest;

TEST_F(FileTest, ReadsRegularFilesOnly) {
  std::string out = "stale";
  const auto read = [&out](std::string_view path) { return kel::ReadRegularFile(path, out, 1000); };
  std::filesystem::create_directory("sub");
  Put("sub/a", "x\0y"sv);
  EXPECT_EQ(read("sub\\a"), ReadStatus::Ok);
  EXPECT_EQ(out, "x\0y"sv);
  EXPECT_EQ(read("missing"), ReadStatus::Missing);
  EXPECT_EQ(out, "");
  EXPECT_EQ(read("sub/a/b"), ReadStatus::Missing);
  EXPECT_EQ(read("sub/a\0b"sv), ReadStatus::Missing);
  EXPECT_EQ(read(std::string(5000, 'x')), ReadStatus::Missing);
  EXPECT_EQ(read(""), ReadStatus::Missing);
  EXPECT_EQ(read("sub"), ReadStatus::NotValid);
  EXPECT_EQ(read("/dev/zero"), ReadStatus::NotValid);
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  EXPECT_EQ(read("fifo"), ReadStatus::NotValid);
  Put("limit", std::string(1000, 'x'));
  EXPECT_EQ(read("limit"), ReadStatus::Ok);
  Put("limit", std::string(1001, 'x'));
  EXPECT_EQ(read("limit"), ReadStatus::NotValid);
  EXPECT_EQ(out, "");
  // The system's own files say that they are empty and are not.
  EXPECT_EQ(kel::ReadRegularFile("/proc/self/status", out, 1 << 20), ReadStatus::Ok);
  EXPECT_GT(out.size(), 100U);
  EXPECT_EQ(kel::ReadRegularFile("/proc/self/status", out, 100), ReadStatus::NotValid);
  if (::geteuid() != 0) {
    std::filesystem::permissions("sub/a", std::filesystem::perms::none);
    EXPECT_EQ(read("sub/a"), ReadStatus::Unreadable);
  }
}

TEST_F(FileTest, AppendsToWhatCannotBlock) {
  const int file = kel::OpenForAppend("log");
  ASSERT_GT(file, 2);
  kel::AppendAll(file, "one\r\n");
  Put("log", "");  // truncated by somebody else: appending goes on at the new end
  kel::AppendAll(file, "two\0\r\n"sv);
  kel::CloseFile(file);
  EXPECT_EQ(Get("log"), "two\0\r\n"sv);
  const int null = kel::OpenForAppend("/dev/null");
  EXPECT_GT(null, 2);
  kel::AppendAll(null, "gone");
  kel::CloseFile(null);
  kel::CloseFile(-1);
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  const int reader = ::open("fifo", O_RDONLY | O_NONBLOCK);
  for (const std::string_view path : {"fifo"sv, "/dev/zero"sv, "."sv, "no/such/dir"sv, "x\0y"sv}) {
    EXPECT_EQ(kel::OpenForAppend(path), -1) << path;
  }
  ::close(reader);
}

/// Runs in a child whose standard output is the given descriptor.
template <class Body>
int RunWithOutput(int descriptor, Body body) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(descriptor, STDOUT_FILENO);
    body();
    ::_exit(7);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(FileTest, StandardOutputLosesNothing) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_NONBLOCK), 0);
  // Far more than a pipe holds, on a descriptor that does not wait, with a slow reader.
  std::string received;
  std::thread reader([&] {
    std::string chunk(4096, '\0');
    while (received.size() < 1'000'000) {
      const ssize_t count = ::read(ends[0], chunk.data(), chunk.size());
      if (count > 0) received.append(chunk, 0, static_cast<size_t>(count));
    }
  });
  EXPECT_EQ(RunWithOutput(ends[1], [] { kel::WriteStandardOutput(std::string(1'000'000, 'x')); }),
            7);
  reader.join();
  EXPECT_EQ(received, std::string(1'000'000, 'x'));
  ::close(ends[0]);
  ::close(ends[1]);
  // A report must not land on a descriptor that stands for a closed standard stream.
  EXPECT_EQ(RunWithOutput(2,
                          [] {
                            ::close(STDOUT_FILENO);
                            kel::WriteStandardOutput("lost");
                            if (kel::OpenForAppend("log") <= 2) ::_exit(1);
                          }),
            7);
}

}  // namespace
