// How long a host waits for what it has asked to stop: for each kind of work that takes long, the
// median, the 99th percentile and the longest time from the request to the return, over requests at
// different moments. The time for which the thread was ready and other threads had its core is not
// counted; the longest time by the clock stands behind. The exit status is 1 when a 99th percentile
// is over 50 ms, or when something ended by itself before every request.
//
//     bench_stops_bench [-n TIMES] [NAME]    only the rows whose names contain NAME

#include <fcntl.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "tamber.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr double kAllowed = 50;

struct Row {
  const char* name;
  const char* before;  ///< statements that prepare, not measured
  const char* work;
};

constexpr const char* kInts =
    "int a[]\na += 10000000\nfor (i = 1; i <= 10000000; i += 1)\n"
    "a[i] = i * 7919 % 10000019\nendfor\n";
constexpr const char* kTexts =
    "string a[]\na += 3000000\nfor (i = 1; i <= 3000000; i += 1)\n"
    "a[i] = \"\" + i * 7919 % 10000019\nendfor\n";
constexpr const char* kText =
    "t = \"word, and a + 1;\"\nfor (i = 1; i <= 23; i += 1)\nt += t\nendfor\n";
constexpr const char* kLarge = "t = \"x\"\nfor (i = 1; i <= 30; i += 1)\nt += t\nendfor\n";
constexpr const char* kPath = "t = \"dir/./a/../\"\nfor (i = 1; i <= 25; i += 1)\nt += t\nendfor\n";
constexpr const char* kSum =
    "t = \"1\"\nfor (i = 1; i <= 22; i += 1)\nt += \"+1\"\nt += t\nt += \"1\"\nendfor\n";

const Row kRows[] = {
    {"loop", "", "while 1\nwend\n"},
    {"recursion", "", "i = Deep(40)\n"},
    {"wait", "", "Wait(1000)\n"},
    {"sort numbers", kInts, "while 1\na = ArraySort(a, i % 2 == 0)\ni += 1\nwend\n"},
    {"sort texts", kTexts, "while 1\na = ArraySort(a, i % 2 == 0)\ni += 1\nwend\n"},
    {"sort texts as such", kTexts, "while 1\na = StrSort(a, i % 2 == 0, false)\ni += 1\nwend\n"},
    {"find in an array", kInts, "while 1\ni = ArrayFind(a, -5, 1)\nwend\n"},
    {"find texts in an array", kTexts, "while 1\ni = ArrayFind(a, \"none\", 1)\nwend\n"},
    {"find in structures", "Pair a[]\na += 3000000\n",
     "while 1\ni = ArrayFind(a, \"n\", -5, 1)\nwend\n"},
    {"sort structures",
     "Pair a[]\na += 1000000\nfor (i = 1; i <= 1000000; i += 1)\n"
     "a[i].n = i * 7919 % 1000003\nendfor\n",
     "while 1\na = ArraySort(a, \"n\", i % 2 == 0)\ni += 1\nwend\n"},
    {"remove doubles", kInts, "while 1\nArrayRemoveDup(a)\nwend\n"},
    {"remove double texts", kTexts, "while 1\nArrayRemoveDup(a, false)\nwend\n"},
    {"remove from an array", kInts,
     "while 1\na[1] -= 1\na = ArraySetSize(a, 9999999)\na += 1\nwend\n"},
    {"copy an array", "int a[]\na += 1000000000\n", "while 1\nint b[]\nb = a\nb[1] = 1\nwend\n"},
    {"copy texts", kTexts, "while 1\nstring b[]\nb = a\nb[1] = \"\"\nwend\n"},
    {"grow numbers", "int a[]\na += 900000000\n", "a += 600000000\nwhile 1\nwend\n"},
    {"grow enciphered", "estring a[]\n", "a += 100000000\n"},
    {"grow structures", "Pair a[]\n", "a += 1500000000\n"},
    {"shrink numbers", "int a[]\na += 1500000000\n", "a -= 1499999999\nwhile 1\nwend\n"},
    {"release numbers", "", "while 1\nf()\nwend\n"},
    {"release texts", kTexts, "while 1\nwend\n"},
    {"release texts, one by one", kTexts,
     "while 1\nstring b[]\nb = a\nb[1] = \"\"\nb -= 3000000\nwend\n"},
    {"release structures",
     "Pair a[]\na += 3000000\nfor (i = 1; i <= 3000000; i += 1)\na[i].n = i\nendfor\n",
     "while 1\nwend\n"},
    {"release empty texts", "string a[]\na += 1000000000\n", "while 1\nwend\n"},
    {"release many arrays",
     "Row a[]\na += 1000000\nfor (i = 1; i <= 1000000; i += 1)\na[i].n += 5\nendfor\n",
     "while 1\nwend\n"},
    {"join large texts", kLarge, "while 1\nu = t + t\nwend\n"},
    {"append large texts", kLarge, "while 1\nu = \"a\"\nu += t\nwend\n"},
    {"part of a large text", kLarge, "while 1\nu = StrMid(t, 2, 1000000000)\nwend\n"},
    {"compare large texts",
     "t = \"x\"\nfor (i = 1; i <= 30; i += 1)\nt += t\nendfor\nu = t + \"y\"\n"
     "t += \"x\"\n",
     "while 1\nif t == u\nendif\nwend\n"},
    {"compare, case does not matter",
     "t = \"x\"\nfor (i = 1; i <= 30; i += 1)\nt += t\nendfor\nu = t + \"y\"\n"
     "t += \"x\"\nStrCase = 0\n",
     "while 1\nif t <= u\nendif\nwend\n"},
    {"enciphered large text", kLarge, "estring e\nwhile 1\ne = t\nu = e + \"\"\nwend\n"},
    {"pass a large text", kLarge, "while 1\nTake(t)\nwend\n"},
    {"split", kText, "while 1\nstring b[]\nb = StrTokenise(t, \" ,\")\nwend\n"},
    {"split, nothing to split", kLarge, "while 1\nstring b[]\nb = StrTokenise(t, \",\")\nwend\n"},
    {"split, many separators", kLarge, "while 1\nstring b[]\nb = StrTokenise(\"a,b\", t)\nwend\n"},
    {"upper case", kLarge, "while 1\nu = StrToUpper(t)\nwend\n"},
    {"to printable", kText, "while 1\nu = StrToAscii(t)\nwend\n"},
    {"to bytes", kText, "while 1\nu = StrToBinary(t)\nwend\n"},
    {"escape HTML", kText, "while 1\nu = StrEscapeHtml(t)\nwend\n"},
    {"escape URL", kText, "while 1\nu = StrEscapeHtmlUrl(t)\nwend\n"},
    {"environment", kText, "while 1\nu = StrExpandEnvString(t)\nwend\n"},
    {"environment, an endless name", kLarge,
     "t = \"%\" + t + \"%\"\nwhile 1\nu = StrExpandEnvString(t)\nwend\n"},
    {"numbers in a text", kText, "int b[]\nwhile 1\nb = StrToNumbers(t)\nwend\n"},
    {"Base64", kText, "while 1\nu = StrDecodeBase64(StrEncodeBase64(t))\nwend\n"},
    {"hexadecimal", kText, "while 1\nu = ConvertFromHex(ConvertToHex(t))\nwend\n"},
    {"hexadecimal of a text", kText, "while 1\nu = StrEncodeHex(t)\nwend\n"},
    {"UTF-16 digits", kText, "while 1\nu = UTF16HexToStr(t, \"\")\nwend\n"},
    {"UTF-16 separators", kLarge, "while 1\nu = UTF16HexToStr(\"0041,0042\", t)\nwend\n"},
    {"XChaCha20", kText, "while 1\nu = StrEncrypt(t, \"XCHACHA20\")\nwend\n"},
    {"cipher by a large name", kLarge, "while 1\nu = StrEncrypt(\"a\", t)\nwend\n"},
    {"DES", kText, "while 1\nu = StrEncodeDESBase64(t, \"p\")\nwend\n"},
    {"DES back", kText,
     "u = StrEncodeDESBase64(t, \"p\")\nwhile 1\nt = StrDecodeDESBase64(u, \"p\")\nwend\n"},
    {"DES by a large password", kLarge, "while 1\nu = StrEncodeDESBase64(\"text\", t)\nwend\n"},
    {"search", kLarge,
     "while 1\ni = StrFind(t, \"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxy\")\nwend\n"},
    {"search, case matters", kLarge, "StrCase = 1\nwhile 1\ni = StrFind(t, \"xxy\")\nwend\n"},
    {"search for a large text", kLarge,
     "u = t + \"y\"\nt += \"xx\"\nwhile 1\ni = StrFind(t, u)\nwend\n"},
    {"versions", kText, "bool c\nwhile 1\nc = CompareVersions(t, \"<\", t)\nwend\n"},
    {"versions, a large operator", kLarge,
     "bool c\nwhile 1\nc = CompareVersions(\"1.2\", t, \"1.3\")\nwend\n"},
    {"wildcard", kText, "bool c\nwhile 1\nc = StrMatch(t, \"*zz*yy\", true)\nwend\n"},
    {"wildcard, a large pattern", kLarge,
     "u = \"*\" + t\nbool c\nwhile 1\nc = StrMatch(t, u, false)\nwend\n"},
    {"POSIX pattern", kText, "u = StrReplaceRegEx(t, \"[a-z]+ \", \"-\", true)\n"},
    {"POSIX pattern, all matches", kText, "string b[]\nb = StrFindRegEx(t, \"[a-z]+ \", true)\n"},
    {"POSIX pattern, hard", "t = \"a\"\nfor (i = 1; i <= 20; i += 1)\nt += t\nendfor\n",
     "bool c\nwhile 1\nc = StrMatchRegEx(t, \"(a|aa)*(a|aaa)*b\", true)\nwend\n"},
    {"POSIX pattern, back references", "t = \"a\"\nfor (i = 1; i <= 20; i += 1)\nt += t\nendfor\n",
     "bool c\nwhile 1\nc = StrMatchRegEx(t, \"(a*)*\\1b\", true)\nwend\n"},
    {"large POSIX pattern", "t = \"(a|b)*c\"\nfor (i = 1; i <= 16; i += 1)\nt += t\nendfor\n",
     "bool c\nwhile 1\nc = StrMatchRegEx(\"text\" + i, t + i, true)\ni += 1\nwend\n"},
    {"larger POSIX pattern", kLarge,
     "bool c\nwhile 1\nc = StrMatchRegEx(\"text\", t, true)\nwend\n"},
    {"Perl-style pattern", kText,
     "u = StrReplacePcre(t, \"([a-z]+) \", \"-\", true)\nwhile 1\nwend\n"},
    {"Perl-style pattern, matches", kText,
     "string b[]\nbool c\nc = StrFindPcre(t, \"([a-z]+) \", b, true)\nwhile 1\nwend\n"},
    {"Perl-style pattern, hard", "t = \"a\"\nfor (i = 1; i <= 20; i += 1)\nt += t\nendfor\n",
     "bool c\nwhile 1\nc = StrMatchPcre(t, \"(a+)+$b\")\nwend\n"},
    {"large Perl-style pattern", "t = \"(a|b)*c\"\nfor (i = 1; i <= 16; i += 1)\nt += t\nendfor\n",
     "bool c\nwhile 1\nc = StrMatchPcre(\"text\" + i, t + i, true)\ni += 1\nwend\n"},
    {"larger Perl-style pattern", kLarge,
     "bool c\nwhile 1\nc = StrMatchPcre(\"text\", t, true)\nwend\n"},
    {"large replacement", kLarge, "while 1\nu = StrReplacePcre(\"aa\", \"a\", t, true)\nwend\n"},
    {"large POSIX replacement", kLarge,
     "while 1\nu = StrReplaceRegEx(\"aa\", \"a\", t, true)\nwend\n"},
    {"evaluate", kSum, "while 1\ni = MakeInt(t)\nwend\n"},
    {"evaluate a large text", kText, "while 1\ni = MakeInt(t)\nwend\n"},
    {"evaluate a large name", kLarge, "while 1\ni = MakeInt(t)\nwend\n"},
    {"evaluate a large literal", kLarge,
     "t = \"'\" + t + \"'\"\nwhile 1\nu = StrEvalAsString(t)\nwend\n"},
    {"evaluate spaces", "t = \" \"\nfor (i = 1; i <= 30; i += 1)\nt += t\nendfor\n",
     "while 1\ni = MakeInt(t)\nwend\n"},
    {"evaluate a changing text", kText, "while 1\nu = t + i\ni += 1\nEvalStr(u)\nwend\n"},
    {"type of a large text", kText, "while 1\ni = StrEvalGetType(t)\nwend\n"},
    {"evaluated to a number", kText, "float x\nwhile 1\nx = StrEvalAsFloat(t)\nwend\n"},
    {"large format", kLarge, "while 1\nu = MakeStr(1, t)\nwend\n"},
    {"large format of a double", kLarge, "while 1\nu = MakeStr(1.5, t)\nwend\n"},
    {"format of a large width", "", "while 1\nu = MakeStr(1, \"%2000000000d\")\nwend\n"},
    {"name of a variable", kLarge, "while 1\ni = Defined(t)\nwend\n"},
    {"name of spaces", "t = \" \"\nfor (i = 1; i <= 30; i += 1)\nt += t\nendfor\n",
     "while 1\ni = Defined(t)\nwend\n"},
    {"name of an element", kLarge,
     "t = \"a[\" + t + \"]\"\nint a[]\nwhile 1\ni = VarGetIntegerValue(t)\nwend\n"},
    {"read a variable by name", kLarge, "while 1\nu = VarGetStringValue(t)\nwend\n"},
    {"write a variable by name", kLarge, "bool c\nwhile 1\nc = VarSetIntegerValue(t, 1)\nwend\n"},
    {"write a large value by name", kLarge,
     "bool c\nwhile 1\nc = VarSetStringValue(\"u\", t)\nwend\n"},
    {"make a variable by name", kLarge, "bool c\nwhile 1\nc = VarCreate(t, 3)\nwend\n"},
    {"make an element visible by name", kLarge, "while 1\ni = Export(t)\nwend\n"},
    {"find structures by a large name", kLarge,
     "Pair a[]\na += 3\nwhile 1\ni = ArrayFind(a, t, 5, 1)\nwend\n"},
    {"sort structures by a large name", kLarge,
     "Pair a[]\na += 3\nwhile 1\na = ArraySort(a, t, true)\nwend\n"},
    {"handler of a large name", kLarge, "ErrHandler = t\nwhile 1\ni = 1 / 0\nwend\n"},
    {"section of a large name", kLarge, "while 1\nDebugDump(t)\nwend\n"},
    {"run-time error with a large text", kLarge,
     "ErrPolicy = 1\nwhile 1\ni = MakeInt(t + \"(\")\nwend\n"},
    {"script of a large name", kLarge, "while 1\ncall t\nwend\n"},
    {"path", kPath, "while 1\ni = FileGetSize(t)\nwend\n"},
    {"path of a directory", kPath, "while 1\ni = DirGetSize(t)\nwend\n"},
    {"path that exists", kPath,
     "bool c\nwhile 1\nc = PathExists(t)\nc = FileExists(t)\nc = DirExists(t)\nwend\n"},
    {"path to be found", kPath,
     "bool c\nwhile 1\nc = PathFind(t)\nc = FileFind(t)\nc = DirFind(t)\nwend\n"},
    {"path of one name", kLarge, "while 1\ni = FileGetSize(t)\nwend\n"},
    {"path to create", kPath,
     "bool c\nwhile 1\nc = PathCreate(t)\nc = DirCreate(t)\nc = FileCreate(t)\nwend\n"},
    {"path to delete", kPath, "bool c\nwhile 1\nc = FileDelete(t)\nc = DirDelete(t)\nwend\n"},
    {"path to copy", kPath,
     "bool c\nwhile 1\nc = FileCopy(t, \"x\")\nc = FileCopy(\"made\", t)\nwend\n"},
    {"path to move", kPath,
     "bool c\nwhile 1\nc = FileMove(t, t)\nc = DirMove(t, t)\nc = FileRename(t, t)\nc = "
     "DirRename(t, t)\nwend\n"},
    {"path to compare", kPath, "bool c\nwhile 1\nc = FileCompare(t, t)\nwend\n"},
    {"path to compress", kPath,
     "while 1\nFileCompress(t, \"x\")\nFileCompress(\"made\", t)\nFileDecompress(t, t)\nwend\n"},
    {"path of a text file", kPath,
     "while 1\nFileAddLine(t, \"x\")\nu = FileGetLine(t, 1)\nu = FileToString(t, "
     "false)\nFileTextOpen(t)\nwend\n"},
    {"path, its parts", kPath,
     "while 1\nu = PathGetDir(t)\nu = PathGetDrive(t)\nu = PathGetFileExt(t)\nu = "
     "PathGetFileName(t)\nu = PathGetFileRoot(t)\nu = PathGetShort(t)\nwend\n"},
    {"path, completed", kPath, "while 1\nu = CompletePath(t)\nu = ResolvePath(t)\nwend\n"},
    {"path of the current directory", kPath, "while 1\nDirSetCurrent(t)\nwend\n"},
    {"path of a search", kPath,
     "FileFindInfo h\nwhile 1\nh = FileFindOpen(t)\nstring b[]\nb = FileFindPcre(t, \"UTF-8\", "
     "true)\nwend\n"},
    {"path of a program", kPath,
     "string b[]\nwhile 1\nb = FileGetModules(t, true, true)\nu = FileGetVersionValue(t, t, "
     "t)\nwend\n"},
    {"path of a temporary file", kPath, "while 1\nu = FileCreateTemp(t)\nwend\n"},
    {"code page of a large name", kLarge,
     "FileCreate(\"made\")\nbool c\nwhile 1\nc = FileConvertToUTF8(\"made\", t)\nwend\n"},
    {"address of a large name", kLarge,
     "t = \"http://\" + t\nbool c\nwhile 1\nc = FileCopy(t, \"x\")\nwend\n"},
    {"address, a large path", kLarge,
     "t = \"http://127.0.0.1:1/\" + t\nbool c\nwhile 1\nc = FileCopy(t, \"x\")\nc = "
     "FileCopy(\"made\", t)\nwend\n"},
    {"local address", kPath,
     "t = \"file:///\" + t\nbool c\nwhile 1\nc = FileCopy(t, \"x\")\nwend\n"},
    {"compress a file", "", "while 1\nFileCompress(\"big\", \"big.gz\")\nwend\n"},
    {"decompress a file", "", "while 1\nFileDecompress(\"packed.gz\", \"unpacked\")\nwend\n"},
    {"digest of a file", "", "while 1\nu = FileMd5(\"big\")\nwend\n"},
    {"compare files", "", "bool c\nwhile 1\nc = FileCompare(\"big\", \"big2\")\nwend\n"},
    {"copy a file", "", "bool c\nwhile 1\nc = FileCopy(\"dense\", \"copied\", true)\nwend\n"},
    {"copy a sparse file", "", "bool c\nwhile 1\nc = FileCopy(\"big\", \"copied\", true)\nwend\n"},
    {"replace a file", "", "bool c\nwhile 1\nc = FileCopy(\"dense\", \"moved\", true)\nwend\n"},
    {"file as text", "", "while 1\nu = FileToString(\"dense\", true)\nwend\n"},
    {"sparse file as text", "", "while 1\nu = FileToString(\"big\", true)\nwend\n"},
    {"last line of a file", "", "while 1\nu = FileGetLine(\"lines\", 100000000)\nwend\n"},
    {"line of a sparse file", "", "while 1\nu = FileGetLine(\"big\", 2)\nwend\n"},
    {"lines of a file", "", "while 1\ni = FileGetLineCount(\"lines\")\nwend\n"},
    {"add lines to a file", "", "while 1\nFileAddLine(\"lines2\", \"one more\")\nwend\n"},
    {"insert lines into a file", "",
     "while 1\nFileInsertLine(\"lines2\", 1, \"one more\")\nwend\n"},
    {"delete lines of a file", "", "while 1\nFileDeleteLine(\"lines2\", 1)\nwend\n"},
    {"open and close a text file", "",
     "TextFileHandle h\nwhile 1\nh = FileTextOpen(\"lines2\")\nFileInsertLine(h, 1, "
     "\"x\")\nFileTextClose(h)\nwend\n"},
    {"add a large line", kLarge,
     "while 1\nFileAddLine(\"made2\", t)\nFileDelete(\"made2\")\nwend\n"},
    {"file in a code page", "",
     "bool c\nwhile 1\nc = FileConvertToUTF8(\"lines3\", \"ISO-8859-1\")\nwend\n"},
    {"file into a code page", "",
     "bool c\nwhile 1\nc = FileConvertToCodePage(\"lines3\", \"UTF-16\")\nwend\n"},
    {"is a file text", "", "bool c\nwhile 1\nc = FileIsText(\"lines\")\nwend\n"},
    {"find in a file", "",
     "string b[]\nwhile 1\nb = FileFindPcre(\"lines\", \"UTF-8\", true)\nwend\n"},
    {"size of a tree", "", "while 1\ni = DirGetSize(\"tree\")\nwend\n"},
    {"size of all", "", "while 1\ni = DirGetSize(\"/\")\nwend\n"},
    {"copy a tree", "", "bool c\nwhile 1\nc = FileCopy(\"tree\", \"copy\", true)\nwend\n"},
    {"delete a tree", "",
     "bool c\nwhile 1\nc = FileCopy(\"tree\", \"copy\", true)\nc = DirDelete(\"copy\", "
     "true)\nwend\n"},
    {"move a tree", "",
     "bool c\nwhile 1\nc = DirMove(\"tree\", \"/dev/shm/bench_stops\")\nc = "
     "DirMove(\"/dev/shm/bench_stops\", \"tree\")\nwend\n"},
    {"list a directory", "", "FileFindInfo h\nwhile 1\nh = FileFindOpen(\"wide/*none*\")\nwend\n"},
    {"find a file", "", "bool c\nwhile 1\nc = FileFind(\"wide/*none*\")\nwend\n"},
    {"print", kText, "while 1\nPrint(t)\nwend\n"},
    {"read a line", "", "while 1\nu = ReadLine()\nwend\n"},
    {"dump", kTexts, "while 1\nDebugDump(\"TamberDebug\")\nwend\n"},
    {"dump a large text", kLarge, "while 1\nDebugDump(\"TamberDebug\")\nwend\n"},
    {"dump structures", "Pair a[]\na += 3000000\n", "while 1\nDebugDump(\"TamberDebug\")\nwend\n"},
};

/// A moment, and how long the running thread had run by then, and been ready while others had its
/// core.
struct Moment {
  double clock;
  double ran;
  double waited;
};

/// The thread whose work is measured.
struct Running {
  pid_t id = gettid();
  clockid_t clock{};
  Running() { ::pthread_getcpuclockid(::pthread_self(), &clock); }

  Moment Now() const {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/task/%d/schedstat", id);
    double ran = 0;
    double waited = 0;
    if (std::FILE* file = std::fopen(path, "r")) {
      if (std::fscanf(file, "%lf %lf", &ran, &waited) != 2) waited = 0;
      std::fclose(file);
    }
    timespec cpu{};
    ::clock_gettime(clock, &cpu);
    return {Milliseconds(Clock::now().time_since_epoch()).count(),
            static_cast<double>(cpu.tv_sec) * 1e3 + static_cast<double>(cpu.tv_nsec) / 1e6,
            waited / 1e6};
  }
};

struct Time {
  double own;
  double byClock;
};

/// Signals that the preparation has ended.
std::promise<void>* begun = nullptr;

int32_t Begin(FunctionCallInfo* info) {
  begun->set_value();
  info->stack->PushInteger(1);
  return 1;
}

/// Runs `run` and asks `context` to stop some time after `start` is ready; what passed from there
/// to the return, below 0 when it had returned already.
template <class Run>
Time TimeStop(TamberContext& context, std::future<void> start, double delay, Run&& run) {
  Moment asked{};
  const Running running;
  std::atomic<bool> returned = false;
  std::thread host([&] {
    start.wait();
    std::this_thread::sleep_for(Milliseconds(delay));
    asked = running.Now();
    if (returned) asked.clock = -1;
    context.RequestStop();
  });
  run();
  const Moment ended = running.Now();
  returned = true;
  host.join();
  if (asked.clock < 0) return {-1, -1};
  const double passed = ended.clock - asked.clock;
  return {std::max(ended.ran - asked.ran, passed - (ended.waited - asked.waited)), passed};
}

constexpr const char* kDeclared =
    "struct Pair\nint n\nstring s\nendstruct\n"
    "struct Row\nint n[]\nendstruct\n"
    "int Deep(int n)\nif n == 0\nreturn 1\nendif\nreturn Deep(n - 1) + Deep(n - 1)\nendproc\n"
    "int Take(string s)\nreturn StrLen(s)\nendproc\n"
    "proc f()\nint big[]\nbig += 1000000000\nendproc\n";

Time StopRow(const Row& row, bool collects, double delay) {
  TamberContext context;
  KelString output;
  if (collects) context.SetOutput(&output);
  context.SetIniPath("dump.ini");
  context.RegisterFunction("int Begin ()", Begin, FunctionList::FUNCTYPE_NORMAL, false);
  const std::string script =
      std::string(kDeclared) +
      "proc main()\nErrHandler = INLINE_HANDLER\nint i\nstring t\nstring u\n" + row.before +
      "Begin()\n" + row.work + "endproc\n";
  if (context.CompileScriptBuffer("stops", KelString(script), 1) == 0) {
    const TamberDiagnostic failure = context.GetDiagnostic();
    std::fprintf(stderr, "%s: %s %s in line %u\n", row.name, failure.text.Str().c_str(),
                 failure.detail.Str().c_str(), failure.line);
    return {-1, -1};
  }
  std::promise<void> ready;
  begun = &ready;
  return TimeStop(context, ready.get_future(), delay, [&] {
    Stack stack;
    context.RunProcedure("main", &stack);
  });
}

/// Work that has no moment at which it has begun, but the call itself.
template <class Run>
Time StopCall(TamberContext& context, double delay, Run&& run) {
  std::promise<void> ready;
  ready.set_value();
  return TimeStop(context, ready.get_future(), delay, run);
}

Time StopCompiling(const KelString& script, double delay) {
  TamberContext context;
  context.SetIniPath("tamber.ini");
  return StopCall(context, delay, [&] { context.CompileScriptBuffer("stops", script, 1); });
}

class Report {
 public:
  Report(int times, std::string wanted, std::FILE* out)
      : times_(times), wanted_(std::move(wanted)), out_(out) {
    std::fprintf(out_, "%-34s %9s %9s %9s %9s\n", "milliseconds to the return", "median", "99 %",
                 "longest", "by clock");
  }

  bool Wants(const char* name) const {
    return std::string(name).find(wanted_) != std::string::npos;
  }

  /// `measure(delay)` for delays up to `longest` milliseconds, spread evenly whatever their number.
  template <class Measure>
  void Add(const char* name, double longest, Measure&& measure) {
    if (!Wants(name)) return;
    constexpr double kGoldenRatio = 0.6180339887498949;
    std::vector<double> own;
    double byClock = 0;
    for (int i = 0; i < times_; ++i) {
      const Time time = measure(1 + longest * std::fmod((i + 1) * kGoldenRatio, 1));
      if (time.byClock < 0) continue;
      own.push_back(time.own);
      byClock = std::max(byClock, time.byClock);
    }
    if (own.empty()) {
      std::fprintf(out_, "%-34s ended before each request\n", name);
      failed_ = true;
      return;
    }
    std::sort(own.begin(), own.end());
    const auto at = [&own](double part) {
      return own[static_cast<size_t>(std::ceil(part * static_cast<double>(own.size()))) - 1];
    };
    const bool isLate = at(0.99) > kAllowed;
    std::fprintf(out_, "%-34s %9.2f %9.2f %9.2f %9.2f%s\n", name, at(0.5), at(0.99), own.back(),
                 byClock, isLate ? "  LATE" : "");
    std::fflush(out_);
    failed_ = failed_ || isLate;
  }

  bool HasFailed() const { return failed_; }

 private:
  int times_;
  std::string wanted_;
  std::FILE* out_;
  bool failed_ = false;
};

/// A server that takes one connection after the other, sends what `greeting` is and then `piece`
/// over and over, each after a pause.
class Drip {
 public:
  Drip(std::string greeting, std::string piece, std::chrono::milliseconds pause)
      : listening_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(listening_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        ::listen(listening_, 8) != 0 ||
        ::getsockname(listening_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
      std::exit(2);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, greeting, piece, pause] {
      for (int peer; (peer = ::accept(listening_, nullptr, nullptr)) >= 0; ::close(peer)) {
        char request[4096];
        bool is = ::recv(peer, request, sizeof request, 0) > 0;
        for (const std::string* next = &greeting; is && !ended_; next = &piece) {
          is = ::send(peer, next->data(), next->size(), MSG_NOSIGNAL) > 0;
          std::this_thread::sleep_for(pause);
        }
      }
    });
  }
  Drip(const Drip&) = delete;
  Drip& operator=(const Drip&) = delete;
  ~Drip() {
    ended_ = true;
    ::shutdown(listening_, SHUT_RDWR);
    thread_.join();
    ::close(listening_);
  }
  std::string Address() const { return "127.0.0.1:" + std::to_string(port_); }

 private:
  int listening_;
  int port_ = 0;
  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

void MakeFiles() {
  namespace fs = std::filesystem;
  for (const char* name : {"big", "big2"}) {
    std::ofstream(name, std::ios::binary) << name[3];
    fs::resize_file(name, 8'000'000'000);
  }
  std::ofstream lines("lines");
  for (int i = 0; i < 10'000'000; ++i) lines << "line " << i << '\n';
  lines.close();
  fs::copy_file("lines", "lines3");
  std::ofstream("dense", std::ios::binary) << std::string(1'000'000'000, 'x');
  std::ofstream few("lines2");
  for (int i = 0; i < 1'000'000; ++i) few << "line " << i << '\n';
  few.close();
  for (int dir = 0; dir < 200; ++dir) {
    const std::string name = "tree/" + std::to_string(dir % 10) + "/" + std::to_string(dir);
    fs::create_directories(name);
    for (int file = 0; file < 100; ++file) std::ofstream(name + "/" + std::to_string(file)) << file;
  }
  fs::create_directory("wide");
  for (int file = 0; file < 100'000; ++file) std::ofstream("wide/" + std::to_string(file));
  if (std::system("head -c 300000000 /dev/zero | gzip -1 > packed.gz") != 0) std::exit(2);
}

void MeasureCompiling(Report& report) {
  std::string script;
  for (int i = 0; i < 300'000; ++i)
    script += "int f" + std::to_string(i) + "(int n)\nint m\nm = n + " + std::to_string(i) +
              "\nreturn m\nendproc\n";
  report.Add("compile procedures", 500,
             [&](double delay) { return StopCompiling(KelString(script), delay); });
  std::string sum = "int i = 1";
  for (int i = 0; i < 2'000'000; ++i) sum += " + 1";
  report.Add("compile one expression", 240,
             [&](double delay) { return StopCompiling(KelString(sum + "\n"), delay); });
  const struct {
    const char* name;
    std::string piece;
  } kinds[] = {
      {"compile globals", "int g%\n"},
      {"compile structures", "struct S%\nint a\nstring b\nendstruct\n"},
      {"compile empty lines", "\n"},
      {"compile a comment", "// line %\n"},
      {"compile one procedure", "@i += % * 2\n"},
      {"compile one literal", "!x"},
      {"compile one name", "#abcdefgh"},
  };
  for (const auto& kind : kinds) {
    if (!report.Wants(kind.name)) continue;
    const char first = kind.piece[0];
    const bool isLong = first == '!' || first == '#';
    const std::string piece = kind.piece.substr(first == '@' || isLong ? 1 : 0);
    std::string text = first == '@'   ? "proc main()\nint i\n"
                       : first == '!' ? "string s = \""
                       : first == '#' ? "int "
                                      : "";
    for (int i = 0; i < (isLong ? 100'000'000 : 3'000'000); ++i) {
      const size_t at = piece.find('%');
      text += piece.substr(0, at);
      if (at != std::string::npos) text += std::to_string(i) + piece.substr(at + 1);
    }
    text += first == '@' ? "endproc\n" : first == '!' ? "\"\n" : "\n";
    const KelString whole(text);
    report.Add(kind.name, 240, [&](double delay) { return StopCompiling(whole, delay); });
  }
}

/// Stores that are asked by the host.
void MeasureSessions(Report& report) {
  const struct {
    const char* name;
    const char* settings;
  } kinds[] = {{"session in a file", "SessionFile=sessions\n"},
               {"session in Redis", "SessionStore=redis://127.0.0.1:6399\nSessionTimeout=20000\n"}};
  const char* declared =
      "session string kept[]\nsession int changes\n"
      "proc Fill()\nint i\nkept += 3000000\n"
      "for (i = 1; i <= 3000000; i += 1)\nkept[i] = changes + \"/\" + i\nendfor\nchanges += "
      "1\nendproc\n";
  for (const auto& kind : kinds) {
    std::ofstream("session.ini") << "[TamberConfig]\n" << kind.settings;
    const auto prepare = [&](TamberContext& context) {
      context.SetIniPath("session.ini");
      context.SetSessionId(7);
      context.CompileScriptBuffer("s", declared, 1);
      context.LoadSession();
      Stack stack;
      context.RunProcedure("Fill", &stack);
    };
    report.Add((std::string("save a ") + kind.name).c_str(), 200, [&](double delay) {
      TamberContext context;
      prepare(context);
      return StopCall(context, delay, [&] { context.SaveSession(); });
    });
    if (report.Wants("load a session")) {
      TamberContext context;
      prepare(context);
      context.SaveSession();
    }
    report.Add((std::string("load a ") + kind.name).c_str(), 60, [&](double delay) {
      TamberContext context;
      context.SetIniPath("session.ini");
      context.SetSessionId(7);
      context.CompileScriptBuffer("s", declared, 1);
      return StopCall(context, delay, [&] { context.LoadSession(); });
    });
  }
}

void MeasureServers(Report& report) {
  using std::chrono::milliseconds;
  const Drip web("HTTP/1.1 200 OK\r\nContent-Length: 100000000\r\n\r\n", "x", milliseconds(200));
  const Drip silent("", "", milliseconds(200));
  const std::string work = "bool c\nwhile 1\nc = FileCopy(\"http://" + web.Address() +
                           "/x\", \"dripped\", true)\nwend\n";
  report.Add("dripping transfer", 240, [&](double delay) {
    return StopRow({"", "", work.c_str()}, true, delay);
  });
  const Drip store("*2000000\r\n", "$1\r\nx\r\n", milliseconds(200));
  std::ofstream("drip.ini") << "[TamberConfig]\nSessionStore=redis://" << store.Address()
                            << "\nSessionTimeout=20000\n";
  report.Add("dripping session", 240, [&](double delay) {
    TamberContext context;
    context.CompileScriptBuffer("s", "session int kept\n", 1);
    context.SetIniPath("drip.ini");
    return StopCall(context, delay, [&] {
      context.SetSessionId(7);
      context.LoadSession();
    });
  });
}

/// The reader of what scripts print does not read.
void MeasurePipe(Report& report) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) std::exit(2);
  const int before = ::dup(STDOUT_FILENO);
  ::dup2(ends[1], STDOUT_FILENO);
  report.Add("print to a full pipe", 240, [&](double delay) {
    return StopRow({"", "", "while 1\nPrint(\"0123456789 0123456789 0123456789\")\nwend\n"}, false,
                   delay);
  });
  report.Add("print much to a full pipe", 240, [&](double delay) {
    return StopRow({"", kText, "while 1\nPrint(t)\nwend\n"}, false, delay);
  });
  ::dup2(before, STDOUT_FILENO);
  ::close(before);
  ::close(ends[0]);
  ::close(ends[1]);
}

}  // namespace

int main(int argc, char** argv) {
  int times = 10;
  std::string wanted;
  for (int at = 1; at < argc; ++at) {
    if (std::string(argv[at]) == "-n" && at + 1 < argc)
      times = std::max(std::atoi(argv[++at]), 1);
    else
      wanted = argv[at];
  }
  std::FILE* const out = ::fdopen(::dup(STDOUT_FILENO), "w");
  // Nobody ever writes to what scripts read.
  int input[2];
  if (out == nullptr || ::pipe2(input, O_CLOEXEC) != 0) return 2;
  ::dup2(input[0], STDIN_FILENO);
  std::filesystem::remove_all("bench_stops");
  std::filesystem::create_directory("bench_stops");
  std::filesystem::current_path("bench_stops");
  std::ofstream("dump.ini")
      << "[TamberDebug]\nOutputType=file\nOutputName=dump.log\nDumpLocals=*\n";
  Report report(times, wanted, out);
  const auto usesFiles = [&report](const Row& row) {
    const std::string work = row.work;
    return report.Wants(row.name) && (work.find("File") + 1 != 0 || work.find("Dir") + 1 != 0);
  };
  if (std::any_of(std::begin(kRows), std::end(kRows), usesFiles)) MakeFiles();
  for (const Row& row : kRows)
    report.Add(row.name, 240, [&](double delay) { return StopRow(row, true, delay); });
  MeasureCompiling(report);
  MeasureSessions(report);
  MeasureServers(report);
  MeasurePipe(report);
  std::filesystem::current_path("..");
  std::filesystem::remove_all("bench_stops");
  std::filesystem::remove_all("/dev/shm/bench_stops");  // what a move was stopped with
  return report.HasFailed() ? 1 : 0;
}
