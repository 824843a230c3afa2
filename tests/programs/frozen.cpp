// The command with one difference: before it runs a script it makes the context a program, and a
// context of that runs. Every script that tests the command tests programs in this way as well.
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "tamber.h"

#define RUN_PROCEDURE(prefix) prefix##_ZN13TamberContext12RunProcedureERK9KelStringP5Stack

extern "C" {
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

}  // namespace

int32_t RUN_PROCEDURE(__wrap_)(TamberContext* prepared, const KelString& name, Stack* stack) {
  const std::shared_ptr<const TamberProgram> program = prepared->Freeze();
  if (program == nullptr) {
    std::fputs("the context was not made a program\n", stderr);
    std::abort();
  }
  TamberContext context(program);
  WatchFaults(*prepared, context);
  const int32_t ran = RUN_PROCEDURE(__real_)(&context, name, stack);
  context.SaveSession();
  HandBack(context, *prepared);
  return ran;
}
