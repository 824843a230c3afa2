#include "kel/nativestack.h"

#include <pthread.h>

#include <cstdint>

namespace kel {
namespace {

/// The usable part of a thread's stack; size 0 when the system does not tell.
struct StackBounds {
  uintptr_t low = 0;
  size_t size = 0;
};

StackBounds FindBounds() {
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

size_t NativeStackLeft() {
  thread_local const StackBounds bounds = FindBounds();
  // The frame's address, not that of a local: a sanitizer may keep locals elsewhere.
  const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  const size_t left = here - bounds.low;
  return left < bounds.size ? left : kUnknownStackLeft;
}

}  // namespace kel
