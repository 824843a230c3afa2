#include "kel/consolein.h"

#include <poll.h>

#include <cstdio>
#include <mutex>
#include <utility>

#include "kel/sleep.h"
#include "kel/stop.h"

namespace kel {
namespace {

constexpr int kMillisecondsPerLook = 10;

/// What a reader that was stopped had of its line, for the next one. The stream is locked, too, but
/// by means that tools which look for races do not see.
std::string ExchangeBegun(std::string line) {
  static std::mutex& mutex = *new std::mutex;
  static std::string& begun = *new std::string;
  const std::lock_guard lock(mutex);
  return std::exchange(begun, std::move(line));
}

/// Other threads of the host may read too: a line is read as a whole.
class StandardInput {
 public:
  StandardInput() {
    while (::ftrylockfile(stdin) != 0) {
      CheckStop();
      SleepFor(kMillisecondsPerLook, nullptr);
    }
  }
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;
  ~StandardInput() { ::funlockfile(stdin); }

  int Next() {
    if (stdin->_IO_read_ptr == stdin->_IO_read_end) Await();
    return ::getc_unlocked(stdin);
  }
  void PutBack(int c) {
    if (c != EOF) std::ungetc(c, stdin);
  }

 private:
  /// Whoever waits for a terminal or a pipe can be stopped.
  static void Await() {
    pollfd input{::fileno(stdin), POLLIN, 0};
    do {
      CheckStop();
    } while (::poll(&input, 1, kMillisecondsPerLook) == 0);
  }
};

bool ReadRest(StandardInput& input, std::string& line, size_t limit) {
  int c = input.Next();
  if (c == EOF) {
    std::clearerr(stdin);  // a terminal may go on after its end-of-file key
    return !line.empty();
  }
  for (; c != EOF; c = input.Next()) {
    if (c == '\n') return true;
    if (c == '\r') {
      const int next = input.Next();
      if (next != '\n') input.PutBack(next);
      return true;
    }
    if (line.size() == limit) {
      input.PutBack(c);
      return true;
    }
    line.push_back(static_cast<char>(c));
  }
  return true;
}

}  // namespace

bool ReadConsoleLine(std::string& line, size_t limit) {
  StandardInput input;
  line = ExchangeBegun({});
  try {
    return ReadRest(input, line, limit);
  } catch (const Interrupted&) {
    ExchangeBegun(std::move(line));
    throw;
  }
}

}  // namespace kel
