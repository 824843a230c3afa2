#include "kel/longstring.h"

#include <algorithm>

#include "kel/stop.h"

namespace kel {

std::string CopyOf(std::string_view text) {
  std::string copy;
  copy.reserve(text.size());
  Append(copy, text);
  return copy;
}

void Append(std::string& to, std::string_view tail) {
  if (to.capacity() - to.size() < tail.size()) {
    const size_t wanted = std::max(to.size() + tail.size(), 2 * to.capacity());
    if (to.size() > kBytesPerStep) {
      std::string moved;
      moved.reserve(wanted);
      Append(moved, to);
      to.swap(moved);
    } else {
      to.reserve(wanted);
    }
  }
  ForSteps(0, tail.size(), kBytesPerStep, [&](uint64_t from, uint64_t end) {
    to.append(tail.substr(from, end - from));
    return true;
  });
}

void Resize(std::string& text, size_t size) {
  if (size < text.size()) text.resize(size);
  text.reserve(size);
  ForSteps(text.size(), size, kBytesPerStep, [&](uint64_t, uint64_t end) {
    text.resize(end);
    return true;
  });
}

ByteSet::ByteSet(std::string_view bytes) {
  ForSteps(0, bytes.size(), kBytesPerStep, [&](uint64_t from, uint64_t end) {
    for (const char c : bytes.substr(from, end - from)) has_[static_cast<unsigned char>(c)] = true;
    return true;
  });
}

size_t ByteSet::Find(std::string_view text, size_t from, bool wanted) const {
  size_t at = from;
  ForSteps(from, text.size(), kBytesPerStep, [&](uint64_t, uint64_t end) {
    while (at < end && Has(text[at]) != wanted) ++at;
    return at == end;
  });
  return at;
}

}  // namespace kel
