// Fuzzes the reader of Windows executables: headers, imports, resources, the version's blocks.

#include <cstddef>
#include <cstdint>

#include "kel/pefile.h"
#include "kel/versioninfo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const kel::MemorySource source(bytes);
  kel::PeFile file;
  if (file.Open(source)) {
    file.Imports();
    const kel::VersionInfo info(file.VersionResource());
    info.Languages();
    kel::VersionPair(info.VersionString(), 0);
  }
  const kel::VersionInfo bare(bytes);
  bare.Languages();
  bare.VersionString();
  return 0;
}
