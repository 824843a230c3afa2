#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>

#include "context/scriptrunner.h"
#include "host/call.h"

namespace {

namespace fs = std::filesystem;

/// box/ is the script's; outside/ is what the other process tries to lead it to.
class Attack : public ScriptRunner {};

void Exchange(const char* a, const char* b) {
  for (int i = 0; i < 2; ++i) ::renameat2(AT_FDCWD, a, AT_FDCWD, b, RENAME_EXCHANGE);
}

/// Writes through no link: what is outside would be changed by this process, not by the script.
void Make(const char* path) {
  const int file = ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0644);
  if (file >= 0 && ::write(file, "own\n", 4) == 4) ::close(file);
}

bool Link(const char* to, const char* name) { return ::symlink(to, name) == 0; }

/// Renames and links until it is killed, or its parent is gone.
[[noreturn]] void RenameAndLink(pid_t parent) {
  while (::getppid() == parent) {
    ::mkdir("box/dir", 0755);
    Make("box/x");
    Make("box/new");
    ::renameat2(AT_FDCWD, "box/new", AT_FDCWD, "box/dir/x", RENAME_NOREPLACE);
    Link("../outside", "box/out");
    Link("../outside/x", "box/xout");
    for (int i = 0; i < 20; ++i) {
      Exchange("box/dir", "box/out");
      Exchange("box/x", "box/xout");
    }
    ::rename("box/dir", "box/moved");
    if (Link("../outside", "box/dir")) ::unlink("box/dir");
    ::rename("box/moved", "box/dir");
  }
  ::_exit(0);
}

/// Everything that takes the name of a file; F is its name, D that of a directory.
constexpr const char* kWays[] = {
    "s = FileToString(F, TRUE)",
    "s = FileGetLine(F, 1)",
    "h = FileTextOpen(F)\ns = FileGetLine(h, 1)\nFileAddLine(h, \"own\")\nFileTextClose(h)",
    "FileAddLine(F, \"own\\n\")",
    "FileInsertLine(F, 1, \"own\")",
    "FileDeleteLine(F, 1)",
    "FileCopy(F, \"box/copy\", TRUE)\ns = FileToString(\"box/copy\", TRUE)",
    "FileCopy(\"box/own\", F, TRUE)",
    "FileMove(F, \"box/taken\")\ns = FileToString(\"box/taken\", TRUE)\nFileDelete(\"box/taken\")",
    "FileCreate(\"box/fresh\")\nFileMove(\"box/fresh\", F)",
    "FileDelete(F, TRUE)\nFileCreate(F)",
    "FileCompress(F, \"box/z\")\nFileDecompress(\"box/z\", \"box/plain\")\ns = "
    "FileToString(\"box/plain\", TRUE)",
    "FileCompress(\"box/own\", F)",
    "FileConvertToUTF8(F, \"1252\")",
    "FileSetMode(F, 511)\nFileSetAttr(F, 1)\nFileSetMode(F, 420)",
    "if (FileGetSize(F) == 6)\n  s = \"secret\"\nendif",
    "if (FileCompare(F, \"box/guess\"))\n  s = \"secret\"\nendif",
    "if (FileMd5(F) == guess)\n  s = \"secret\"\nendif",
    "search = FileFindOpen(D + \"/*\")\ns = FileFindNext(search) + FileFindNext(search) + "
    "FileFindNext(search)\nFileFindClose(search)",
    "names = FileFindPcre(D + \"/secret.*\", \"\", TRUE)\nif (ArrayGetSize(names) > 0)\n  s = "
    "\"secret\"\nendif",
    "if (FileExists(D + \"/secretname\") || FileIsText(D + \"/secretname\"))\n  s = "
    "\"secret\"\nendif",
    "if (DirExists(D + \"/secretdir\"))\n  s = \"secret\"\nendif",
    "DirCreate(D + \"/made\")\nPathCreate(D + \"/made/deep\")\nDirDelete(D + \"/made\", TRUE)",
    "DirDelete(D + \"/secretdir\")\nDirDelete(D, TRUE)",
    "DirMove(D, \"box/away\")\ns = FileToString(\"box/away/secretname\", "
    "TRUE)\nDirMove(\"box/away\", D)",
    "if (DirGetSize(D) > 1)\n  s = \"secret\"\nendif",
    "DirSetCurrent(D)\ns = FileToString(\"secretname\", TRUE)\nFileAddLine(\"x\", "
    "\"own\\n\")",
    "call F",
};

TEST_F(Attack, NoNameLeadsOutWhileAnotherProcessRenamesAndLinks) {
  for (const char* dir : {"box", "outside/secretdir"}) fs::create_directories(dir);
  Put("outside/x", "secret");
  Put("outside/secretname", std::string(2048, 's') + "secret");
  Put("box/own", "own\n");
  Put("box/guess", "secret");
  const auto outside = [] {
    std::set<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator("outside")) {
      struct stat info {};
      ::lstat(entry.path().c_str(), &info);
      files.insert(entry.path().string() + " " + std::to_string(info.st_mode) + " " +
                   std::to_string(info.st_ino) + " " +
                   (entry.is_regular_file() ? Get(entry.path().string()) : ""));
    }
    return files;
  };
  const auto before = outside();
  kel::FilePolicy policy;
  policy.SetAccess(kel::Access::None);
  ASSERT_TRUE(policy.AddDirectory("box", kel::Access::Write));
  context_.SetFilePolicy(policy);
  context_.SetDefaultReports(false);
  std::string script = "string guess = \"5ebe2294ecd0e0f08eab7690d2a6ee69\"\n";
  int ways = 0;
  for (const char* body : kWays) {
    script += "string Way" + std::to_string(ways++) +
              "(string F, string D)\nErrHandler = INLINE_HANDLER\nTextFileHandle h\n"
              "FileFindInfo search\nstring[] names\nstring s\n" +
              body + "\nreturn s\nendproc\n";
  }
  ASSERT_EQ(Compile(script), 1) << ErrorText();
  const pid_t parent = ::getpid();
  const pid_t other = ::fork();
  ASSERT_GE(other, 0);
  if (other == 0) RenameAndLink(parent);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  const std::string names[][2] = {{"box/dir/x", "box/dir"},
                                  {"box/x", "box/out"},
                                  {"file://" + dir_ + "/box/xout", "box/dir/../dir"},
                                  {dir_ + "/box/out/x", dir_ + "/box/dir"}};
  int calls = 0;
  for (; std::chrono::steady_clock::now() < end; ++calls) {
    const auto& [file, directory] = names[calls / ways % std::ssize(names)];
    const std::string way = "Way" + std::to_string(calls % ways);
    const std::string seen = Call<std::string>(context_, way, file, directory).ValueOr("");
    EXPECT_EQ(seen.find("secret"), std::string::npos) << kWays[calls % ways] << file;
    fs::current_path(dir_);
  }
  ::kill(other, SIGKILL);
  ::waitpid(other, nullptr, 0);
  EXPECT_GT(calls, 4 * ways);
  EXPECT_EQ(outside(), before);
}

}  // namespace
