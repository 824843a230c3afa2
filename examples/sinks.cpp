#include <iostream>
#include <string>

#include "tamber.h"

namespace {

void OnOutput(std::string_view text, void* user) { static_cast<std::string*>(user)->append(text); }

bool OnReport(const KelString& /*section*/, std::string_view /*text*/, void* /*user*/) {
  return true;  // no tamber.log
}

void OnError(const TamberDiagnostic& error, void* /*user*/) {
  std::cout << error.name.Str() << " in " << error.procedure.Str() << ", line " << error.line
            << ", column " << error.column << '\n';
  for (const TamberCallFrame& frame : error.callStack)
    std::cout << "  " << frame.procedure.Str() << ", line " << frame.line << '\n';
}

constexpr const char* kScript =
    "int Share(int sum, int people)\n"
    "  return sum / people\n"
    "endproc\n"
    "proc main()\n"
    "  Print(\"sharing\")\n"
    "  Print(Share(10, 0) + \" each\")\n"
    "endproc\n";

}  // namespace

int main() {
  std::string printed;
  TamberContext context;
  context.SetOutputSink(OnOutput, &printed);
  context.SetReportSink(OnReport, nullptr);
  context.SetDiagnosticHandler(OnError, nullptr);
  if (!context.CompileScriptBuffer("sharing", kScript, 1)) return 1;
  const bool ran = Call(context, "main").IsOk();
  std::cout << "printed \"" << printed << "\", " << (ran ? "ran" : "failed") << '\n';
  return 0;
}
