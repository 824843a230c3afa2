// The command with one difference: before it runs a script it makes the context a program, and a
// context of that runs, while what compiling and freezing made cannot be written. Every script that
// tests the command tests programs in this way as well.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <thread>

#include "readonly.h"
#include "tamber.h"

#define RUN_PROCEDURE(prefix) prefix##_ZN13TamberContext12RunProcedureERK9KelStringP5Stack
#define COMPILE_FILE(prefix) prefix##_ZN13TamberContext17CompileScriptFileERK9KelString
#define COMPILE_TEXT(prefix) prefix##_ZN13TamberContext19CompileScriptBufferERK9KelStringS2_j

extern "C" {
int32_t COMPILE_FILE(__real_)(TamberContext* context, const KelString& name);
int32_t COMPILE_FILE(__wrap_)(TamberContext* context, const KelString& name);
int32_t COMPILE_TEXT(__real_)(TamberContext* context, const KelString& name, const KelString& text,
                              uint32_t line);
int32_t COMPILE_TEXT(__wrap_)(TamberContext* context, const KelString& name, const KelString& text,
                              uint32_t line);
int32_t RUN_PROCEDURE(__real_)(TamberContext* context, const KelString& name, Stack* stack);
int32_t RUN_PROCEDURE(__wrap_)(TamberContext* context, const KelString& name, Stack* stack);
}

namespace {

TamberContext* theCommands = nullptr;
TamberContext* theRunning = nullptr;
struct sigaction theCommandsHandler;

/// The command shows where a remainder by zero was before the signal ends it.
void HandFaultBack(int signal, siginfo_t* info, void* machine) {
  const_cast<TamberDiagnostic&>(theCommands->GetDiagnostic()) = theRunning->GetDiagnostic();
  theCommandsHandler.sa_sigaction(signal, info, machine);
}

void WatchFaults(TamberContext& prepared, TamberContext& context) {
  theCommands = &prepared;
  theRunning = &context;
  struct sigaction own = {};
  own.sa_sigaction = HandFaultBack;
  own.sa_flags = SA_SIGINFO | static_cast<int>(SA_RESETHAND);
  sigaction(SIGFPE, &own, &theCommandsHandler);
}

/// What the command looks at afterwards.
void HandBack(TamberContext& from, TamberContext& to) {
  for (const enum_VarListType scope : {VARLIST_GLOBAL, VARLIST_EXTERNAL}) {
    Variable* const status = from.RemoveVariable("ExitCode", scope);
    if (status == nullptr) continue;
    Variable::Delete(to.RemoveVariable("ExitCode", scope));
    to.AddVariable(status, scope);
  }
  to.SetContextError(from.GetContextError(), from.GetContextErrorText());
}

std::shared_ptr<const TamberProgram> Freeze(TamberContext& prepared) {
  const Collected collected;
  return prepared.Freeze();
}

int32_t RunProgram(TamberContext& prepared, const std::shared_ptr<const TamberProgram>& program,
                   const KelString& name, Stack* stack) {
  std::optional<ReadOnly> guard(std::in_place);
  auto context = std::make_unique<TamberContext>(program);
  WatchFaults(prepared, *context);
  const int32_t ran = RUN_PROCEDURE(__real_)(context.get(), name, stack);
  context->SaveSession();
  guard.reset();
  HandBack(*context, prepared);
  guard.emplace();
  context.reset();
  return ran;
}

}  // namespace

int32_t COMPILE_FILE(__wrap_)(TamberContext* context, const KelString& name) {
  const Collected collected;
  return COMPILE_FILE(__real_)(context, name);
}

int32_t COMPILE_TEXT(__wrap_)(TamberContext* context, const KelString& name, const KelString& text,
                              uint32_t line) {
  const Collected collected;
  return COMPILE_TEXT(__real_)(context, name, text, line);
}

int32_t RUN_PROCEDURE(__wrap_)(TamberContext* prepared, const KelString& name, Stack* stack) {
  const std::shared_ptr<const TamberProgram> program = Freeze(*prepared);
  if (program == nullptr) {
    std::fputs("the context was not made a program\n", stderr);
    std::abort();
  }
  // Memory that this thread has ready for what it makes next may be the program's.
  int32_t ran = 0;
  std::thread([&] { ran = RunProgram(*prepared, program, name, stack); }).join();
  return ran;
}
