#include "kel/nativestack.h"

#include <pthread.h>
#include <sys/auxv.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

namespace kel {
namespace {

/// The system keeps at least this much room free below the first thread's stack, whatever limit was
/// in force when the process started.
constexpr rlim_t kAlwaysFree = rlim_t{64} << 20;
/// Between the end of the stack and the texts that the process was started with, and some more.
constexpr size_t kMargin = size_t{64} << 10;

/// The first thread's stack grows down from the texts of the command line, as far as its limit
/// says. The C library finds the same by reading the list of all mappings, which takes longer than
/// a short script. Size 0 when the caller is not on that stack, or its limit is no ordinary one.
StackBounds FirstThreadBounds(uintptr_t here) {
  const uintptr_t top = ::getauxval(AT_EXECFN);
  rlimit limit{};
  if (::gettid() != ::getpid() || ::getrlimit(RLIMIT_STACK, &limit) != 0) return {};
  if (limit.rlim_cur <= kMargin || limit.rlim_cur > std::min<rlim_t>(kAlwaysFree, top)) return {};
  const StackBounds bounds{top - limit.rlim_cur + kMargin, limit.rlim_cur - kMargin};
  return here - bounds.low < bounds.size ? bounds : StackBounds{};
}

StackBounds OwnBounds() {
  StackBounds bounds;
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return bounds;
  void* low = nullptr;
  size_t size = 0;
  size_t guard = 0;
  if (pthread_attr_getstack(&attributes, &low, &size) == 0 &&
      pthread_attr_getguardsize(&attributes, &guard) == 0 && guard < size) {
    // Whether the reported range includes the guard differs between threads; leave it out in any
    // case.
    bounds.low = reinterpret_cast<uintptr_t>(low) + guard;
    bounds.size = size - guard;
  }
  pthread_attr_destroy(&attributes);
  return bounds;
}

}  // namespace

constinit thread_local StackBounds stack_bounds;

void FindStackBounds(uintptr_t here) {
  const StackBounds first = FirstThreadBounds(here);
  stack_bounds = first.size != 0 ? first : OwnBounds();
  stack_bounds.isKnown = true;
}

}  // namespace kel
