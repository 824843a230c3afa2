// Fuzzes the reader of Windows executables: headers, imports, resources, the version's blocks.
//
//   clang++ -std=c++20 -g -O1 -fsanitize=fuzzer,address,undefined -Isrc fuzz/pefile_fuzz.cpp
//     src/kel/{pefile,versioninfo,bytes,number,kelformat}.cpp -o pefile_fuzz
//   ./pefile_fuzz -max_total_time=60 corpus/

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
