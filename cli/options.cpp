#include "options.h"

#include <getopt.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <string_view>

namespace {

constexpr int kUnwritten = 1;
constexpr int kBadCommandLine = 2;

constexpr char kHelp[] =
    R"(Runs a Tamber script.
Usage: tamber [OPTION...] SCRIPT [ARG...]
       tamber [OPTION...] -e TEXT [ARG...]

Options:
  -h, --help      Print this help and exit
      --version   Print the version and exit
      --ini FILE  Configuration (default: ./tamber.ini)
      --session ID
                  Load and save the variables of this session, 1 to 4294967295
      --sandbox DIR
                  Let scripts use files below this directory only, and no network
      --limit LIST
                  End a script that exceeds a limit, such as steps=1000000,time=2s,memory=64M,
                  depth=1000,output=1M; also evaluations, scripts, reports, string, array, handles
      --log LEVEL Show log messages down to: error, warning, info or detail
  -e TEXT         Run TEXT as a script
      --dump[=WHAT]
                  Show what was compiled on standard error: statements (the default) or code
      --trace     Show procedures as they run on standard error
      --color WHEN
                  Colours in errors: auto, always or never (default: auto)
      --check     Compile only, run nothing
      --verify    Check the code of each procedure before it first runs

SCRIPT is a file, or - for standard input. The ARGs reach a script that declares
"extern string[] Args". The exit status is 0 when the script ran well, or the value of its
"extern int ExitCode"; 1 when it did not compile, ended with an error or printed what could not
be written, and 2 when the command line was wrong or the session could not be loaded or saved.
)";

enum Option : int {
  kHelpOption = 'h',
  kText = 'e',
  kVersion = 256,
  kIni,
  kSession,
  kSandbox,
  kLimit,
  kLog,
  kDump,
  kTrace,
  kColor,
  kCheck,
  kVerify
};

// The C library reads the command line: what libraries for that set up at each start takes longer
// than compiling and running an empty script.

/// The "+" ends the options at the first word that is none: it is the script's name, and what
/// follows belongs to the script.
constexpr char kShortOptions[] = "+he:";

constexpr std::array<option, 13> kLongOptions{{{"help", no_argument, nullptr, kHelpOption},
                                               {"version", no_argument, nullptr, kVersion},
                                               {"ini", required_argument, nullptr, kIni},
                                               {"session", required_argument, nullptr, kSession},
                                               {"sandbox", required_argument, nullptr, kSandbox},
                                               {"limit", required_argument, nullptr, kLimit},
                                               {"log", required_argument, nullptr, kLog},
                                               {"dump", optional_argument, nullptr, kDump},
                                               {"trace", no_argument, nullptr, kTrace},
                                               {"color", required_argument, nullptr, kColor},
                                               {"check", no_argument, nullptr, kCheck},
                                               {"verify", no_argument, nullptr, kVerify},
                                               {nullptr, 0, nullptr, 0}}};

/// Least severe last.
constexpr KelDebugContext::Level kLevels[] = {
    KelDebugContext::Level::Error, KelDebugContext::Level::Warning, KelDebugContext::Level::Info,
    KelDebugContext::Level::Detail};

bool ReadLevel(std::string_view name, std::optional<KelDebugContext::Level>* level) {
  const auto* const found =
      std::find_if(std::begin(kLevels), std::end(kLevels),
                   [name](KelDebugContext::Level each) { return name == KelDebugLevelName(each); });
  if (found == std::end(kLevels)) {
    return false;
  }
  *level = *found;
  return true;
}

bool ReadSession(std::string_view text, std::optional<uint32_t>* session) {
  uint32_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  *session = id;
  return error == std::errc() && end == text.data() + text.size() && id != 0;
}

bool IsColor(std::string_view when) {
  return when == "auto" || when == "always" || when == "never";
}

const char* TakeDump(std::string_view what, Options* options) {
  options->dumpCode = options->dumpCode || what == "code";
  options->dump = options->dump || what == "statements";
  return what == "code" || what == "statements" ? nullptr : "it is statements or code";
}

/// Why an option's value is refused; null when it is taken.
const char* Take(int name, const char* value, Options* options) {
  std::error_code failed;
  switch (name) {
    case kIni:
      options->iniPath = value;
      return std::filesystem::is_regular_file(value, failed) ? nullptr : "there is no such file";
    case kSession:
      return ReadSession(value, &options->session) ? nullptr
                                                   : "a session is a number, 1 to 4294967295";
    case kSandbox:
      options->sandbox = value;
      return std::filesystem::is_directory(value, failed) ? nullptr : "there is no such directory";
    case kLimit:
      options->limits.emplace_back(value);
      return TamberLimits().SetAll(value).empty()
                 ? nullptr
                 : "limits are NAME=NUMBER with commas between; see --help";
    case kLog:
      return ReadLevel(value, &options->log) ? nullptr
                                             : "a level is error, warning, info or detail";
    case kColor:
      options->color = value;
      return IsColor(value) ? nullptr : "it is auto, always or never";
    case kText:
      options->text = value;
      return nullptr;
    case kDump:
      return TakeDump(value != nullptr ? value : "statements", options);
    case kVerify:
      options->verify = true;
      return nullptr;
    case kTrace:
      options->trace = true;
      return nullptr;
    default:
      options->checkOnly = true;
      return nullptr;
  }
}

int Refuse() {
  std::fputs("Run with --help for more information.\n", stderr);
  return kBadCommandLine;
}

}  // namespace

std::optional<int> ParseOptions(int argc, char* const* argv, Options* options) {
  int name = 0;
  int at = 0;  // in the long options: the short ones take any value
  while ((name = getopt_long(argc, argv, kShortOptions, kLongOptions.data(), &at)) != -1) {
    if (name == kHelpOption || name == kVersion) {
      std::fputs(name == kVersion ? "tamber " TAMBER_VERSION "\n" : kHelp, stdout);
      return std::fflush(stdout) == 0 ? 0 : kUnwritten;
    }
    if (name == '?') {  // what is wrong has been said
      return Refuse();
    }
    if (const char* const reason = Take(name, optarg, options)) {
      std::fprintf(stderr, "tamber: --%s '%s': %s\n", kLongOptions.at(static_cast<size_t>(at)).name,
                   optarg, reason);
      return Refuse();
    }
  }
  int next = optind;
  if (!options->text) {
    if (next == argc) {
      std::fputs("tamber: a SCRIPT is missing\n", stderr);
      return Refuse();
    }
    options->script = argv[next++];
  }
  options->args.assign(argv + next, argv + argc);
  return std::nullopt;
}
