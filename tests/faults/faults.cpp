// Preloaded into the command: lets the n-th system call on a file of the session store fail, or
// kills the process there.
//
//   TAMBER_FAULT_AT    n, from 1
//   TAMBER_FAULT_MODE  "once": that call fails; "on": that one and all that follow; "kill": the
//   process ends before it TAMBER_FAULT_MARK  a file that is made when the n-th call is reached

// The checked forms of these calls are inline functions of the same names.
#undef _FORTIFY_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr const char* kStore = "TamberSessions";

bool IsStore(const char* path) { return path != nullptr && std::strstr(path, kStore) != nullptr; }

bool IsStore(int descriptor) {
  char link[64];
  char path[4096];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
  const ssize_t length = ::readlink(link, path, sizeof path - 1);
  if (length < 0) return false;
  path[length] = '\0';
  return IsStore(path);
}

/// Whether the call that is about to be made fails.
bool Fails(bool isStore, int error) {
  static const char* const at = std::getenv("TAMBER_FAULT_AT");
  static const char* const mode = std::getenv("TAMBER_FAULT_MODE");
  static long count = 0;
  if (!isStore || at == nullptr || mode == nullptr) return false;
  const long wanted = std::atol(at);
  if (++count < wanted || (count > wanted && std::strcmp(mode, "on") != 0)) return false;
  if (count == wanted) {
    const char* mark = std::getenv("TAMBER_FAULT_MARK");
    const long file = ::syscall(SYS_openat, AT_FDCWD, mark, O_WRONLY | O_CREAT, 0600);
    ::syscall(SYS_close, file);
    if (std::strcmp(mode, "kill") == 0) ::raise(SIGKILL);
  }
  errno = error;
  return true;
}

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// The definitions below have the system's own declarations.
#define TAMBER_FAULT(result, name, parameters, subject, error, arguments)    \
  extern "C" __attribute__((visibility("default"))) result name parameters { \
    if (Fails(IsStore(subject), error)) return -1;                           \
    static auto* const next = Next<result parameters>(#name);                \
    return next arguments;                                                   \
  }

TAMBER_FAULT(ssize_t, read, (int file, void* out, size_t size), file, EIO, (file, out, size))
TAMBER_FAULT(ssize_t, pread64, (int file, void* out, size_t size, off64_t at), file, EIO,
             (file, out, size, at))
TAMBER_FAULT(ssize_t, write, (int file, const void* in, size_t size), file, ENOSPC,
             (file, in, size))
TAMBER_FAULT(ssize_t, pwrite64, (int file, const void* in, size_t size, off64_t at), file, ENOSPC,
             (file, in, size, at))
TAMBER_FAULT(int, fsync, (int file), file, EIO, (file))
TAMBER_FAULT(int, fdatasync, (int file), file, EIO, (file))
TAMBER_FAULT(int, ftruncate64, (int file, off64_t size), file, EIO, (file, size))
TAMBER_FAULT(int, unlink, (const char* path), path, EIO, (path))
TAMBER_FAULT(int, rename, (const char* from, const char* to), from, EIO, (from, to))
TAMBER_FAULT(int, fchmod, (int file, mode_t mode), file, EPERM, (file, mode))

extern "C" __attribute__((visibility("default"))) int open64(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = va_arg(more, mode_t);
  va_end(more);
  if (Fails(IsStore(path), EMFILE)) return -1;
  return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}
extern "C" __attribute__((visibility("default"))) int open(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = va_arg(more, mode_t);
  va_end(more);
  return open64(path, flags, mode);
}
