// The tamber command: compiles a script and runs its main procedure, as any host would.

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <string>

#include "options.h"
#include "tamber.h"

namespace {

enum ExitStatus { kWell = 0, kScriptFailed = 1 };

std::string ToStd(const KelString& text) { return {text.c_str(), text.GetLength()}; }

KelString ToKel(const std::string& text) {
  return KelString(text.data(), static_cast<uint32_t>(text.size()));
}

/// FILE:LINE: error NAME (CODE): text: detail, then the source line.
void ShowError(const TamberDiagnostic& error, void* /*user*/) {
  std::string report = ToStd(error.file) + ":" + std::to_string(error.line) + ": error ";
  if (error.name.GetLength() != 0) {
    report += ToStd(error.name) + " ";
  }
  report += "(" + std::to_string(error.code) + "): " + ToStd(error.text);
  if (error.detail.GetLength() != 0) {
    report += ": " + ToStd(error.detail);
  }
  report += "\n";
  if (error.sourceLine.GetLength() != 0) {
    report += ToStd(error.sourceLine) + "\n";
  }
  std::fwrite(report.data(), 1, report.size(), stderr);
}

int Compile(TamberContext* context, const std::string& script) {
  if (script != "-") {
    return context->CompileScriptFile(ToKel(script));
  }
  std::cin >> std::noskipws;
  const std::string text{std::istreambuf_iterator<char>(std::cin), {}};
  return context->CompileScriptBuffer("<stdin>", ToKel(text), 1);
}

/// Gives the arguments to a script that asked for them. The global is added after compiling, so that it collides with
/// no name of the script's own; a look-up finds it before the external declaration.
void AddArguments(TamberContext* context, const std::vector<std::string>& args) {
  const Variable* declared = context->GetVariable("Args", 8);
  if (declared == nullptr) {
    return;
  }
  auto* values = new VarStringArray("Args", 0);
  if (!values->IsSameType(declared)) {
    Variable::Delete(values);
    return;
  }
  for (const std::string& arg : args) {
    auto* value = new VarString("", 0);
    value->SetStringValue(ToKel(arg));
    values->AddArrayElement(value);
  }
  context->AddVariable(values, Global);
}

/// Modules beside the program are found by way of its own path.
void SetOwnPath(TamberContext* context) {
  std::error_code failed;
  const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", failed);
  if (!failed) {
    context->SetExePath(ToKel(path.string()));
  }
}

int Run(const Options& options) {
  TamberContext context(nullptr);
  context.SetDiagnosticHandler(ShowError, nullptr);
  SetOwnPath(&context);
  if (!options.iniPath.empty()) {
    context.SetIniPath(ToKel(options.iniPath));
  }
  if (options.session) {
    context.SetSessionId(*options.session);
  }
  if (!Compile(&context, options.script)) {
    return kScriptFailed;
  }
  if (options.checkOnly) {
    return kWell;
  }
  AddArguments(&context, options.args);
  Stack stack;
  const int ran = context.RunProcedure("main", &stack);
  if (options.session) {
    context.ResetContext();
  }
  return ran ? kWell : kScriptFailed;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (const std::optional<int> status = ParseOptions(argc, argv, &options)) {
    return *status;
  }
  return Run(options);
}
