#pragma once

#include <sys/time.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string>

#include "kel/kelascii.h"
#include "tamber.h"

/// What the fuzzers of whole expressions and scripts share.
namespace fuzz {

/// Inputs are not let near files, paths, other processes or clocks: every built-in that touches
/// them has one of these words in its name.
inline bool IsHarmless(const std::string& text) {
  const std::string lower = kel::Lowered(text);
  for (const char* word : {"file", "dir", "path", "call", "include", "wait", "sleep", "readline",
                           "exec", "env", "flush", "dump", "session", "des", "encrypt"}) {
    if (lower.find(word) != std::string::npos) return false;
  }
  return true;
}

/// A context that prints and reports nothing.
class QuietContext : public TamberContext {
 public:
  QuietContext() {
    SetIniPath(TAMBER_FUZZ_INI);
    SetOutput(&output_);
  }

 private:
  KelString output_;
};

/// Ends a run that takes too long, the way that a host would.
class Budget {
 public:
  explicit Budget(TamberContext& context) {
    running = &context;
    // The remainder by zero is a fault by design; who handles it sees the script go on.
    std::signal(SIGFPE, [](int) {});
    std::signal(SIGALRM, [](int) { running->RequestStop(); });
    Arm(200);
  }
  Budget(const Budget&) = delete;
  Budget& operator=(const Budget&) = delete;
  ~Budget() { Arm(0); }

 private:
  static void Arm(int32_t milliseconds) {
    itimerval timer{};
    timer.it_value.tv_usec = milliseconds * 1000;
    setitimer(ITIMER_REAL, &timer, nullptr);
  }
  static inline TamberContext* running = nullptr;
};

}  // namespace fuzz
