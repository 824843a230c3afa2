#include "kel/loader.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "kel/pathparser.h"

namespace kel {
namespace {

bool ReadAt(int file, void* to, size_t size, uint64_t offset) {
  return ::pread(file, to, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

/// The system's loader maps what the headers promise and dies of a bus error when the file is
/// shorter than that; so the promises are compared with the file's size before.
const char* FindFault(int file) {
  struct stat info {};
  if (::fstat(file, &info) != 0 || !S_ISREG(info.st_mode)) return "not a regular file";
  const auto size = static_cast<uint64_t>(info.st_size);
  Elf64_Ehdr header{};
  if (!ReadAt(file, &header, sizeof(header), 0) ||
      std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64 ||
      header.e_phentsize != sizeof(Elf64_Phdr)) {
    return "not a shared library of this machine";
  }
  std::vector<Elf64_Phdr> segments(header.e_phnum);
  const char* const kTruncated = "the file is truncated";
  if (!ReadAt(file, segments.data(), segments.size() * sizeof(Elf64_Phdr), header.e_phoff)) {
    return kTruncated;
  }
  for (const Elf64_Phdr& segment : segments) {
    if (segment.p_type == PT_LOAD &&
        (segment.p_offset > size || segment.p_filesz > size - segment.p_offset)) {
      return kTruncated;
    }
  }
  return nullptr;
}

}  // namespace

void* LoadLibraryFile(std::string_view path, std::string& error) {
  std::string name = SystemPath(path);
  if (name.find('/') == std::string::npos) name = "./" + name;
  const int file = name.find('\0') == std::string::npos
                       ? ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)
                       : -1;
  if (file < 0) {
    error = "the file cannot be opened";
    return nullptr;
  }
  const char* fault = FindFault(file);
  ::close(file);
  if (fault != nullptr) {
    error = fault;
    return nullptr;
  }
  void* library = ::dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char* reason = ::dlerror();
    error = reason != nullptr ? reason : "unknown reason";
  }
  return library;
}

void* FindSymbol(void* library, const char* name) {
  return library != nullptr ? ::dlsym(library, name) : nullptr;
}

void FreeLibraryFile(void* library) {
  if (library != nullptr) ::dlclose(library);
}

}  // namespace kel
