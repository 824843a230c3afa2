// Fuzzes the reader of ELF files: the names of the libraries that one needs.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "kel/elffile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int file = ::memfd_create("elf", 0);
  if (file < 0 || ::write(file, data, size) != static_cast<ssize_t>(size)) std::abort();
  std::vector<std::string> names;
  const bool isElf = kel::NeededLibraries(file, names);
  ::close(file);
  if (!isElf && !names.empty()) std::abort();
  return 0;
}
