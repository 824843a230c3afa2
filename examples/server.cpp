#include <array>
#include <cstdlib>
#include <iostream>
#include <thread>

#include "tamber.h"

namespace {

constexpr const char* kScript =
    "session int visits\n"
    "int scratch\n"
    "int Visit(int weight)\n"
    "  scratch += weight\n"
    "  visits += scratch\n"
    "  return visits\n"
    "endproc\n";

/// One compiled script that serves one request at a time, whatever session it belongs to.
class Worker {
 public:
  Worker() {
    if (!context_.CompileScriptBuffer("visits", kScript, 1)) std::abort();
    context_.KeepGlobals();
  }

  int32_t Serve(uint32_t session, int32_t weight) {
    context_.SetSessionId(session);
    context_.RestoreGlobals();  // nothing of the last request is left
    context_.LoadSession();
    const int32_t visits = Call<int32_t>(context_, "Visit", weight).ValueOr(-1);
    context_.SaveSession();
    return visits;
  }

 private:
  TamberContext context_;
};

}  // namespace

int main() {
  constexpr uint32_t kThreads = 4;
  std::array<int32_t, kThreads> last{};
  std::array<std::thread, kThreads> threads;
  for (uint32_t t = 0; t < kThreads; ++t) {
    // Each thread has a context of its own; the sessions are in one store.
    threads[t] = std::thread([&last, t] {
      Worker worker;
      for (int32_t request = 0; request < 10; ++request) last[t] = worker.Serve(t + 1, 1);
    });
  }
  for (std::thread& thread : threads) thread.join();
  Worker another;
  for (uint32_t t = 0; t < kThreads; ++t)
    std::cout << "session " << t + 1 << ": " << last[t] << ", then " << another.Serve(t + 1, 5)
              << '\n';
  return 0;
}
