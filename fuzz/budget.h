#pragma once

#include <csignal>
#include <cstdlib>
#include <ctime>

#include "context/tambctxt.h"

namespace fuzz {

/// Ends a run that takes too long, the way that a host would. libFuzzer has a timer of its own for
/// what does not end then.
class Budget {
 public:
  explicit Budget(TamberContext& context) {
    static const timer_t made = MakeTimer();
    timer_ = made;
    running = &context;
    Arm(20);
  }
  Budget(const Budget&) = delete;
  Budget& operator=(const Budget&) = delete;
  ~Budget() {
    Arm(0);
    running = nullptr;
  }

 private:
  static timer_t MakeTimer() {
    std::signal(SIGRTMIN, [](int) {
      if (running != nullptr) running->RequestStop();
    });
    // The remainder by zero raises a fault by design; other arithmetic may not.
    struct sigaction fault {};
    fault.sa_sigaction = [](int, siginfo_t* info, void*) {
      if (info->si_code > 0) std::abort();
    };
    fault.sa_flags = SA_SIGINFO;
    ::sigaction(SIGFPE, &fault, nullptr);
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGRTMIN;
    timer_t timer{};
    if (::timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) std::abort();
    return timer;
  }
  /// Again and again: an input may take a stop back.
  void Arm(long milliseconds) const {
    const timespec time{0, milliseconds * 1'000'000};
    const itimerspec when{time, time};
    ::timer_settime(timer_, 0, &when, nullptr);
  }

  static inline TamberContext* volatile running = nullptr;
  timer_t timer_;
};

}  // namespace fuzz
