#include "kel/consolein.h"

#include <cstdio>

namespace kel {
namespace {

/// Other threads of the host may read too: a line is read as a whole.
class StandardInput {
 public:
  StandardInput() { ::flockfile(stdin); }
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;
  ~StandardInput() { ::funlockfile(stdin); }

  int Next() { return ::getc_unlocked(stdin); }
  void PutBack(int c) {
    if (c != EOF) std::ungetc(c, stdin);
  }
};

}  // namespace

bool ReadConsoleLine(std::string& line, size_t limit) {
  line.clear();
  StandardInput input;
  int c = input.Next();
  if (c == EOF) {
    std::clearerr(stdin);  // a terminal may go on after its end-of-file key
    return false;
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

}  // namespace kel
