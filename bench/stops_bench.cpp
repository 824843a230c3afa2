// How long a host waits for a run that it has asked to stop: for each kind of work that takes long,
// the longest and the median time from the request to the return, over requests at different
// moments. A row that ends by itself before the request says so.
//
//     bench_stops_bench [NAME]    only the rows whose names contain NAME

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "tamber.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

struct Row {
  const char* name;
  const char* before;  ///< statements that prepare, not measured
  const char* work;
};

constexpr const char* kInts =
    "int a[]\na += 10000000\nfor (i = 1; i <= 10000000; i += 1)\n"
    "a[i] = i * 7919 % 10000019\nendfor\n";
constexpr const char* kTexts =
    "string a[]\na += 2000000\nfor (i = 1; i <= 2000000; i += 1)\n"
    "a[i] = \"\" + i * 7919 % 10000019\nendfor\n";
constexpr const char* kText =
    "t = \"word, and a + 1;\"\nfor (i = 1; i <= 23; i += 1)\nt += t\nendfor\n";
constexpr const char* kLarge = "t = \"x\"\nfor (i = 1; i <= 30; i += 1)\nt += t\nendfor\n";
constexpr const char* kSum =
    "t = \"1\"\nfor (i = 1; i <= 22; i += 1)\nt += \"+1\"\nt += t\nt += \"1\"\nendfor\n";

const Row kRows[] = {
    {"loop", "", "while 1\nwend\n"},
    {"sort numbers", kInts, "a = ArraySort(a, true)\n"},
    {"sort texts", kTexts, "a = ArraySort(a, true)\n"},
    {"sort texts as such", kTexts, "a = StrSort(a, true, false)\n"},
    {"find in an array", kInts, "while 1\ni = ArrayFind(a, -5, 1)\nwend\n"},
    {"find texts in an array", kTexts, "while 1\ni = ArrayFind(a, \"none\", 1)\nwend\n"},
    {"remove doubles", kInts, "a = ArrayRemoveDup(a)\n"},
    {"copy an array", "int a[]\na += 1000000000\n", "int b[]\nb = a\nb[1] = 1\n"},
    {"grow numbers", "int a[]\na += 900000000\n", "a += 600000000\n"},
    {"grow enciphered", "estring a[]\n", "a += 100000000\n"},
    {"shrink numbers", "int a[]\na += 1500000000\n", "a -= 1499999999\nwhile 1\nwend\n"},
    {"release numbers", "", "while 1\nf()\nwend\n"},
    {"release texts", kTexts, "while 1\nwend\n"},
    {"release empty texts", "string a[]\na += 1000000000\n", "while 1\nwend\n"},
    {"join large texts", kLarge, "while 1\nu = t + t\nwend\n"},
    {"append large texts", kLarge, "while 1\nu = \"a\"\nu += t\nwend\n"},
    {"compare large texts",
     "t = \"x\"\nfor (i = 1; i <= 30; i += 1)\nt += t\nendfor\nu = t + \"y\"\n"
     "t += \"x\"\n",
     "while 1\nif t == u\nendif\nwend\n"},
    {"split", kText, "string b[]\nb = StrTokenise(t, \" ,\")\n"},
    {"split, nothing to split", kLarge, "while 1\nstring b[]\nb = StrTokenise(t, \",\")\nwend\n"},
    {"upper case", kLarge, "while 1\nu = StrToUpper(t)\nwend\n"},
    {"to printable", kText, "while 1\nu = StrToAscii(t)\nwend\n"},
    {"to bytes", kText, "while 1\nu = StrToBinary(t)\nwend\n"},
    {"escape HTML", kText, "while 1\nu = StrEscapeHtml(t)\nwend\n"},
    {"escape URL", kText, "while 1\nu = StrEscapeHtmlUrl(t)\nwend\n"},
    {"environment", kText, "while 1\nu = StrExpandEnvString(t)\nwend\n"},
    {"numbers in a text", kText, "int b[]\nwhile 1\nb = StrToNumbers(t)\nwend\n"},
    {"Base64", kText, "while 1\nu = StrDecodeBase64(StrEncodeBase64(t))\nwend\n"},
    {"hexadecimal", kText, "while 1\nu = ConvertFromHex(ConvertToHex(t))\nwend\n"},
    {"UTF-16 digits", kText, "while 1\nu = UTF16HexToStr(t, \"\")\nwend\n"},
    {"XChaCha20", kText, "while 1\nu = StrEncrypt(t, \"XCHACHA20\")\nwend\n"},
    {"DES", kText, "u = StrEncodeDESBase64(t, \"p\")\n"},
    {"search", kLarge,
     "while 1\ni = StrFind(t, \"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxy\")\nwend\n"},
    {"search, case matters", kLarge, "StrCase = 1\nwhile 1\ni = StrFind(t, \"xxy\")\nwend\n"},
    {"versions", kText, "bool c\nwhile 1\nc = CompareVersions(t, \"<\", t)\nwend\n"},
    {"wildcard", kText, "bool c\nwhile 1\nc = StrMatch(t, \"*zz*yy\", true)\nwend\n"},
    {"POSIX pattern", kText, "u = StrReplaceRegEx(t, \"[a-z]+ \", \"-\", true)\n"},
    {"Perl-style pattern", kText, "u = StrReplacePcre(t, \"([a-z]+) \", \"-\", true)\n"},
    {"evaluate", kSum, "while 1\ni = MakeInt(t)\nwend\n"},
    {"print", kText, "while 1\nPrint(t)\nwend\n"},
    {"dump", kTexts, "while 1\nDebugDump(\"TamberDebug\")\nwend\n"},
};

/// Signals that the preparation has ended.
std::promise<void>* begun = nullptr;

int32_t Begin(FunctionCallInfo* info) {
  begun->set_value();
  info->stack->PushInteger(1);
  return 1;
}

/// Runs `run` and asks `context` to stop some time after `start` is ready; the milliseconds from
/// there to the return, below 0 when it had returned already.
template <class Run>
double TimeStop(TamberContext& context, std::future<void> start, int delay, Run&& run) {
  Clock::time_point asked;
  std::thread host([&] {
    start.wait();
    std::this_thread::sleep_for(std::chrono::milliseconds(delay));
    asked = Clock::now();
    context.RequestStop();
  });
  run();
  const Clock::time_point ended = Clock::now();
  host.join();
  return Milliseconds(ended - asked).count();
}

double StopRow(const Row& row, int delay) {
  TamberContext context;
  KelString output;
  context.SetOutput(&output);
  context.SetIniPath("bench_stops/tamber.ini");
  context.RegisterFunction("int Begin ()", Begin, FunctionList::FUNCTYPE_NORMAL, false);
  const std::string script = std::string("proc f()\nint big[]\nbig += 1000000000\nendproc\n") +
                             "proc main()\nint i\nstring t\nstring u\n" + row.before + "Begin()\n" +
                             row.work + "endproc\n";
  if (context.CompileScriptBuffer("stops", KelString(script), 1) == 0) return -1;
  std::promise<void> ready;
  begun = &ready;
  return TimeStop(context, ready.get_future(), delay, [&] {
    Stack stack;
    context.RunProcedure("main", &stack);
  });
}

void Print(const char* name, std::vector<double> times) {
  std::sort(times.begin(), times.end());
  if (times.front() < 0)
    std::printf("%-28s ended before the request\n", name);
  else
    std::printf("%-28s longest %8.2f ms, median %8.2f ms\n", name, times.back(),
                times[times.size() / 2]);
  std::fflush(stdout);
}

/// Compiling has no moment at which it has begun, but the call itself.
double StopCompiling(const KelString& script, int delay) {
  TamberContext context;
  context.SetIniPath("bench_stops/tamber.ini");
  std::promise<void> ready;
  ready.set_value();
  return TimeStop(context, ready.get_future(), delay,
                  [&] { context.CompileScriptBuffer("stops", script, 1); });
}

constexpr int kDelays[] = {1, 5, 20, 50, 100, 170, 240};

template <class Measure>
void Measured(const char* name, const std::string& wanted, Measure&& measure) {
  if (std::string(name).find(wanted) == std::string::npos) return;
  std::vector<double> times;
  for (const int delay : kDelays) times.push_back(measure(delay));
  Print(name, times);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string wanted = argc > 1 ? argv[1] : "";
  std::filesystem::create_directory("bench_stops");
  for (const Row& row : kRows)
    Measured(row.name, wanted, [&](int delay) { return StopRow(row, delay); });
  std::string script;
  for (int i = 0; i < 300'000; ++i)
    script += "int f" + std::to_string(i) + "(int n)\nint m\nm = n + " + std::to_string(i) +
              "\nreturn m\nendproc\n";
  Measured("compile procedures", wanted,
           [&](int delay) { return StopCompiling(KelString(script), delay * 20); });
  std::string sum = "int i = 1";
  for (int i = 0; i < 2'000'000; ++i) sum += " + 1";
  Measured("compile one expression", wanted,
           [&](int delay) { return StopCompiling(KelString(sum + "\n"), delay); });
  std::filesystem::remove_all("bench_stops");
}
