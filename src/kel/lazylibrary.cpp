#include "kel/lazylibrary.h"

#include <dlfcn.h>

#include "kel/notice.h"

namespace kel {

void* LazyLibrary::Find(const char* function) {
  void* library = handle_.load(std::memory_order_acquire);
  if (library == nullptr) {
    // Two threads may both come here; the system counts the second opening, nothing more.
    library = ::dlopen(file_, RTLD_NOW | RTLD_LOCAL);
    handle_.store(library, std::memory_order_release);
  }
  void* const address = library != nullptr ? ::dlsym(library, function) : nullptr;
  if (address != nullptr) return address;
  const char* const reason = ::dlerror();
  Notice("Tamber", reason != nullptr ? reason : function);
  throw MissingLibrary();
}

}  // namespace kel
