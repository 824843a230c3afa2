#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kel/bytesource.h"

namespace kel {

/// Reads Windows executables, 32 and 64 bits. Nothing in the file is believed before it is compared
/// with the file's size, and nothing in it makes the reader work for longer than a moment.
class PeFile {
 public:
  /// False when the bytes are no such executable. The source stays the caller's.
  bool Open(const ByteSource& source);

  /// The first version resource; "" when there is none. Throws std::bad_alloc for one of more than
  /// 16 MiB.
  std::string VersionResource() const;
  /// Names of the modules that are imported, in the order of the import table.
  std::vector<std::string> Imports() const;

 private:
  struct Section {
    uint32_t address;
    uint32_t size;
    uint32_t fileOffset;
  };
  bool ReadDirectories(uint64_t offset, uint32_t bytes);
  bool ReadSections(uint64_t offset, uint32_t count);
  /// Reads by address in the loaded image.
  bool ReadAt(uint32_t address, uint32_t size, std::string& out) const;
  /// Position in the file of an address, and how many bytes of its section follow there.
  bool Locate(uint32_t address, uint64_t& offset, uint64_t& left) const;
  std::string NameAt(uint32_t address) const;
  bool FindResource(uint32_t table, uint32_t wanted, uint32_t& entry) const;

  struct Directory {
    uint32_t address = 0;
    uint32_t size = 0;
  };
  const ByteSource* source_ = nullptr;
  std::vector<Section> sections_;
  Directory imports_;
  Directory resources_;
};

}  // namespace kel
