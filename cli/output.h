#pragma once

#include <csignal>
#include <string>
#include <string_view>

#include "tamber.h"

/// Writes what scripts print to standard output: to a terminal each text at once, to all else in
/// pieces, and what is collected before anything goes to standard error, before a script reads and
/// when a signal ends the process. When standard output cannot be written, the script ends: nobody
/// would see the rest. There is one, for as long as the process runs scripts.
class Output {
 public:
  Output();
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// Takes what the scripts of this context print. The place of their fault (`%` by zero) is shown
  /// through the context's diagnostic.
  void Serve(TamberContext& context, void (*showFault)(const TamberDiagnostic&, void*), void* user);
  void Flush();
  /// 0, or the system's number for what went wrong.
  int Fault() const { return fault_; }

  /// Writes to standard error, behind what has been printed so far.
  static void ShowError(std::string_view text);
  /// Whether anything has been written there.
  static bool HasShownErrors() { return hasShownErrors; }

 private:
  static void Write(std::string_view text, void* user) { static_cast<Output*>(user)->Put(text); }
  static void EndBySignal(int number, siginfo_t* info, void* machine);
  void CatchSignals();
  void Put(std::string_view text);
  void WriteAll(std::string_view text);

  static Output* current;
  static bool hasShownErrors;

  TamberContext* context_ = nullptr;
  void (*showFault_)(const TamberDiagnostic&, void*) = nullptr;
  void* faultUser_ = nullptr;
  int fault_ = 0;
  std::string pending_;
  size_t room_;
  /// What is being written now would be written twice by a signal handler.
  volatile std::sig_atomic_t isWriting_ = 0;
};
