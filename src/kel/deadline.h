#pragma once

#include <sys/types.h>

#include <cstdint>

namespace kel {

class DeadlineWatch;

/// Calls a function from a thread of its own when a time has passed, unless it has ended by then.
/// After the destructor it is not called any more. Without a thread to be had it is never called.
/// A process that was forked begins with none of those of its parent.
class Deadline {
 public:
  Deadline(uint64_t nanoseconds, void (*expire)(void*), void* user);
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;
  ~Deadline();

 private:
  friend class DeadlineWatch;

  DeadlineWatch* watch_;
  uint64_t end_;
  void (*expire_)(void*);
  void* user_;
};

}  // namespace kel
