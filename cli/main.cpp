// The tamber command: compiles a script and runs its main procedure, as any host would.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "errors.h"
#include "options.h"
#include "output.h"
#include "tamber.h"

namespace {

enum ExitStatus { kWell = 0, kScriptFailed = 1, kStoreFailed = 2 };

constexpr int32_t kHighestStatus = 255;
constexpr size_t kLongestScript = size_t{256} << 20;

/// Shows messages of the asked level and of those above it on standard error.
class Log final : public KelDebugContext {
 public:
  explicit Log(Level least) : least_(least) {}
  bool IsEnabled(Level level) const override { return level <= least_; }
  void Write(Level level, const KelString& channel, const KelString& text) override {
    const std::string line =
        channel.Str() + ": " + KelDebugLevelName(level) + ": " + text.Str() + "\n";
    Output::ShowError(line);
  }

 private:
  Level least_;
};

int Compile(TamberContext* context, const Options& options) {
  if (options.text) {
    return context->CompileScriptBuffer("<text>", *options.text, 1);
  }
  const std::string& script = options.script;
  if (script != "-") {
    return context->CompileScriptFile(script);
  }
  std::string text;
  std::array<char, 65536> piece;
  // More than the library takes is not read, only enough to be refused.
  size_t count = 0;
  while (text.size() <= kLongestScript &&
         (count = std::fread(piece.data(), 1, piece.size(), stdin)) > 0) {
    text.append(piece.data(), count);
  }
  return context->CompileScriptBuffer("<stdin>", text, 1);
}

/// Gives a script what it has declared as `extern`. The global is added after compiling, so that it
/// collides with no name of the script's own; a look-up finds it before the external declaration.
void AddArguments(TamberContext* context, const std::vector<std::string>& args) {
  const Variable* declared = context->GetVariable("Args", VARLIST_EXTERNAL);
  if (declared == nullptr || !declared->IsArray()) {
    return;
  }
  const Variable* prototype = declared->GetArrayElementType();
  if (prototype == nullptr || prototype->GetTypeId() != Variable::String) {
    return;
  }
  Variable* values = declared->Clone();
  for (const std::string& arg : args) {
    Variable* value = prototype->Clone();
    value->SetStringValue(arg);
    values->AddArrayElement(value);
  }
  context->AddVariable(values, VARLIST_GLOBAL);
}

void AddExitCode(TamberContext* context) {
  const Variable* declared = context->GetVariable("ExitCode", VARLIST_EXTERNAL);
  if (declared != nullptr && declared->GetTypeId() == Variable::Integer) {
    context->AddVariable(declared->Clone(), VARLIST_GLOBAL);
  }
}

/// The status that a script which ran well has chosen.
int StatusOfScript(TamberContext* context) {
  if (context->GetVariable("ExitCode", VARLIST_EXTERNAL) == nullptr) {
    return kWell;
  }
  const Variable* chosen = context->GetVariable("ExitCode", VARLIST_GLOBAL);
  const int32_t status = chosen != nullptr ? chosen->GetIntegerValue() : 0;
  if (status >= 0 && status <= kHighestStatus) {
    return status;
  }
  Output::ShowError("tamber: ExitCode is " + std::to_string(status) +
                    ", and the statuses of programs are 0 to 255\n");
  return kScriptFailed;
}

int32_t PrintError(std::string_view text) {
  Output::ShowError(text);
  return static_cast<int32_t>(text.size());
}

void ShowNotice(void* /*user*/, const KelString& caption, const KelString& text) {
  std::string line = caption.Str() + ": " + text.Str();
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  Output::ShowError(line + "\n");
}

/// Modules beside the program are found by way of its own path.
void SetOwnPath(TamberContext* context) {
  std::array<char, 4096> path;
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  if (length > 0 && static_cast<size_t>(length) < path.size()) {
    context->SetExePath(std::string(path.data(), static_cast<size_t>(length)));
  }
}

/// Confines the scripts to one directory, keeps them off the network and shows them nothing of the
/// process.
bool Confine(TamberContext* context, const std::string& directory) {
  kel::FilePolicy policy;
  policy.SetAccess(kel::Access::None);
  policy.SetNetwork(false);
  policy.SetEnvironment(false);
  policy.SetDirectoryName(false);
  policy.SetProcesses(false);
  if (!policy.AddDirectory(directory, kel::Access::Write)) return false;
  context->SetFilePolicy(policy);
  return true;
}

bool WantsColor(const std::string& when) {
  if (when != "auto") {
    return when == "always";
  }
  const char* refused = std::getenv("NO_COLOR");
  return (refused == nullptr || *refused == '\0') && isatty(STDERR_FILENO) != 0;
}

/// Dumps and traces that the command line asks for go to standard error; all else where the
/// configuration sends it.
bool ShowDebug(const KelString& section, std::string_view text, void* /*user*/) {
  if (section != "TamberDebug") {
    return false;
  }
  Output::ShowError(text);
  return true;
}

/// Says on standard error what became of the session, if its store has failed. The script's own
/// status stands otherwise.
int StatusWithSession(const TamberContext& context, const Options& options, int status) {
  const KelString fault = options.session ? context.GetSessionFault() : KelString();
  if (fault.IsEmpty()) {
    return status;
  }
  Output::ShowError("tamber: the store of session " + std::to_string(*options.session) +
                    " failed, variables were not kept: " + fault.Str() + "\n");
  return kStoreFailed;
}

/// Those of the configuration hold where the command line says nothing else.
void SetLimits(TamberContext* context, const std::vector<std::string>& lists) {
  if (lists.empty()) {
    return;
  }
  TamberLimits limits = context->GetLimits();
  for (const std::string& list : lists) {
    limits.SetAll(list);
  }
  context->SetLimits(limits);
}

int Run(const Options& options) {
  Output output;
  kel::SetNoticeHandler(ShowNotice, nullptr);
  std::optional<Log> log;
  TamberContext context(nullptr);
  if (options.log) {
    context.SetDebugContext(&log.emplace(*options.log));
  }
  ErrorDisplay display(WantsColor(options.color));
  context.SetDiagnosticHandler(ErrorDisplay::Show, &display);
  output.Serve(context, ErrorDisplay::Show, &display);
  RegisterFunctionLater(context, "int PrintError (string Text)", PrintError, {.localsBlind = true});
  SetOwnPath(&context);
  if (!options.iniPath.empty()) {
    context.SetIniPath(options.iniPath);
  }
  if (!options.sandbox.empty() && !Confine(&context, options.sandbox)) {
    Output::ShowError("tamber: cannot use the directory " + options.sandbox + "\n");
    return kScriptFailed;
  }
  SetLimits(&context, options.limits);
  if (options.session) {
    context.SetSessionId(*options.session);
  }
  // What is only tried out leaves no file behind unless the configuration names one.
  context.SetDefaultReports(!options.text && !options.checkOnly);
  if (options.verify) {
    context.SetCodeVerification(true);
  }
  if (options.dump || options.dumpCode || options.trace) {
    context.SetReportSink(ShowDebug, nullptr);
    context.SetStatementDump(options.dump);
    context.SetCodeDump(options.dumpCode);
    context.SetProcedureTrace(options.trace);
  }
  // A string compiles although the value of a variable failed; a file does not.
  if (!Compile(&context, options) || context.GetContextError() != 0) {
    return StatusWithSession(context, options, kScriptFailed);
  }
  if (options.checkOnly) {
    return StatusWithSession(context, options, kWell);
  }
  AddArguments(&context, options.args);
  AddExitCode(&context);
  Stack stack;
  const int ran = context.RunProcedure("main", &stack);
  context.SaveSession();
  output.Flush();
  if (output.Fault() != 0) {
    Output::ShowError(std::string("tamber: cannot write to standard output: ") +
                      std::strerror(output.Fault()) + "\n");
    return kScriptFailed;
  }
  return StatusWithSession(context, options, ran ? StatusOfScript(&context) : kScriptFailed);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (const std::optional<int> ended = ParseOptions(argc, argv, &options)) {
    return *ended;
  }
  int status = kScriptFailed;
  try {
    status = Run(options);
  } catch (const std::bad_alloc&) {
  }
  // Only without memory does an error go unsaid; this line needs none.
  if (status == kScriptFailed && !Output::HasShownErrors()) {
    Output::ShowError("tamber: out of memory\n");
  }
  return status;
}
