#include "output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr size_t kRoom = size_t{64} << 10;

/// Those that end a process.
constexpr int kSignals[] = {SIGHUP,  SIGINT,  SIGQUIT, SIGILL,  SIGABRT, SIGBUS, SIGFPE,
                            SIGSEGV, SIGTERM, SIGALRM, SIGUSR1, SIGUSR2, SIGXCPU};

}  // namespace

Output* Output::current = nullptr;
bool Output::hasShownErrors = false;

Output::Output() : room_(isatty(STDOUT_FILENO) != 0 ? 0 : kRoom) {
  // Here and not when something is printed: there may be no memory then.
  pending_.reserve(room_);
  current = this;
  CatchSignals();
}

Output::~Output() {
  Flush();
  current = nullptr;
}

void Output::Serve(TamberContext& context, void (*showFault)(const TamberDiagnostic&, void*),
                   void* user) {
  context_ = &context;
  showFault_ = showFault;
  faultUser_ = user;
  context.SetOutputSink(Write, this);
}

/// What is ignored, as for a process that is to outlive its terminal, stays so; and what a tool
/// that watches the process handles is left to it.
void Output::CatchSignals() {
  for (const int number : kSignals) {
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) != 0 || (action.sa_flags & SA_SIGINFO) != 0 ||
        action.sa_handler != SIG_DFL) {
      continue;
    }
    action.sa_sigaction = EndBySignal;
    action.sa_flags = static_cast<int>(SA_SIGINFO | SA_RESETHAND | SA_NODEFER);
    sigaction(number, &action, nullptr);
  }
}

/// The library raises the fault of `%` itself, at a place where all is in order; any other signal
/// may come anywhere, and only what is collected is saved.
void Output::EndBySignal(int number, siginfo_t* info, void* /*machine*/) {
  Output* const output = current;
  if (output != nullptr && output->isWriting_ == 0) {
    output->Flush();
    const bool isOwn = number == SIGFPE && info->si_code == SI_TKILL && info->si_pid == getpid();
    if (isOwn && output->context_ != nullptr && output->context_->GetDiagnostic().code != 0) {
      output->showFault_(output->context_->GetDiagnostic(), output->faultUser_);
    }
  }
  std::raise(number);
}

void Output::Put(std::string_view text) {
  if (text.empty()) return Flush();
  if (pending_.size() + text.size() > room_) Flush();
  if (text.size() >= room_) return WriteAll(text);
  pending_.append(text);
}

void Output::Flush() {
  WriteAll(pending_);
  pending_.clear();
}

void Output::WriteAll(std::string_view text) {
  isWriting_ = 1;
  while (!text.empty() && fault_ == 0) {
    const ssize_t count = ::write(STDOUT_FILENO, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<size_t>(count));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      pollfd waiting{STDOUT_FILENO, POLLOUT, 0};
      ::poll(&waiting, 1, -1);
    } else if (errno != EINTR) {
      fault_ = errno;
      if (context_ != nullptr) context_->RequestStop();
    }
  }
  isWriting_ = 0;
}

void Output::ShowError(std::string_view text) {
  if (current != nullptr) current->Flush();
  std::fwrite(text.data(), 1, text.size(), stderr);
  hasShownErrors = true;
}
