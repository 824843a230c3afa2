#include "kel/pefile.h"

#include <algorithm>
#include <new>

namespace kel {
namespace {

constexpr uint32_t kMaxImports = 65536;
constexpr uint32_t kMaxResourceEntries = 65536;
constexpr uint32_t kMaxVersionBytes = 1 << 24;
constexpr uint32_t kMaxNameBytes = 512;
constexpr uint32_t kVersionType = 16;
constexpr uint32_t kSubdirectory = 0x80000000U;
constexpr uint32_t kAny = 0xFFFFFFFFU;

constexpr uint32_t kFileHeaderBytes = 24;  // the signature and the header behind it
constexpr uint32_t kSectionBytes = 40;
constexpr uint32_t kImportBytes = 20;
constexpr uint32_t kImportDirectory = 1;
constexpr uint32_t kResourceDirectory = 2;

/// Reads numbers that lie in `bytes` for certain: callers have asked for that many.
uint16_t Get16(std::string_view bytes, size_t at) {
  return static_cast<uint16_t>(static_cast<unsigned char>(bytes[at]) |
                               static_cast<unsigned char>(bytes[at + 1]) << 8);
}
uint32_t Get32(std::string_view bytes, size_t at) {
  return Get16(bytes, at) | static_cast<uint32_t>(Get16(bytes, at + 2)) << 16;
}

}  // namespace

bool PeFile::Open(const ByteSource& source) {
  source_ = &source;
  std::string bytes;
  if (!source.Read(0, 64, bytes) || !bytes.starts_with("MZ")) return false;
  const uint64_t header = Get32(bytes, 60);
  if (!source.Read(header, kFileHeaderBytes, bytes)) return false;
  if (!bytes.starts_with(std::string_view("PE\0\0", 4))) return false;
  const uint32_t sections = Get16(bytes, 6);
  const uint32_t optional = Get16(bytes, 20);
  const uint64_t at = header + kFileHeaderBytes;
  return ReadDirectories(at, optional) && ReadSections(at + optional, sections);
}

bool PeFile::ReadDirectories(uint64_t offset, uint32_t bytes) {
  std::string header;
  if (bytes < 2 || !source_->Read(offset, bytes, header)) return false;
  const uint16_t magic = Get16(header, 0);
  if (magic != 0x10B && magic != 0x20B) return false;
  const size_t countAt = magic == 0x10B ? 92 : 108;  // 32 and 64 bits
  if (bytes < countAt + 4) return true;
  const uint32_t count = Get32(header, countAt);
  const auto read = [&](uint32_t which) {
    const size_t at = countAt + 4 + size_t{which} * 8;
    if (which >= count || at + 8 > header.size()) return Directory{};
    return Directory{Get32(header, at), Get32(header, at + 4)};
  };
  imports_ = read(kImportDirectory);
  resources_ = read(kResourceDirectory);
  return true;
}

bool PeFile::ReadSections(uint64_t offset, uint32_t count) {
  std::string table;
  if (!source_->Read(offset, uint64_t{count} * kSectionBytes, table)) return false;
  for (size_t at = 0; at < table.size(); at += kSectionBytes) {
    const uint32_t rawSize = Get32(table, at + 16);
    const uint32_t virtualSize = Get32(table, at + 8);
    const uint32_t size = virtualSize == 0 ? rawSize : std::min(virtualSize, rawSize);
    sections_.push_back({Get32(table, at + 12), size, Get32(table, at + 20)});
  }
  return true;
}

bool PeFile::Locate(uint32_t address, uint64_t& offset, uint64_t& left) const {
  for (const Section& section : sections_) {
    if (address < section.address || address - section.address >= section.size) continue;
    const uint32_t inside = address - section.address;
    offset = uint64_t{section.fileOffset} + inside;
    left = section.size - inside;
    if (offset >= source_->Size()) return false;
    left = std::min(left, source_->Size() - offset);
    return true;
  }
  return false;
}

bool PeFile::ReadAt(uint32_t address, uint32_t size, std::string& out) const {
  uint64_t offset = 0;
  uint64_t left = 0;
  return Locate(address, offset, left) && size <= left && source_->Read(offset, size, out);
}

std::string PeFile::NameAt(uint32_t address) const {
  uint64_t offset = 0;
  uint64_t left = 0;
  std::string name;
  if (!Locate(address, offset, left)) return name;
  if (!source_->Read(offset, std::min<uint64_t>(left, kMaxNameBytes), name)) return name;
  const size_t end = name.find('\0');
  return end == std::string::npos ? std::string() : name.substr(0, end);
}

std::vector<std::string> PeFile::Imports() const {
  std::vector<std::string> names;
  if (imports_.address == 0) return names;
  std::string record;
  for (uint64_t address = imports_.address; names.size() < kMaxImports; address += kImportBytes) {
    if (address > UINT32_MAX || !ReadAt(static_cast<uint32_t>(address), kImportBytes, record))
      break;
    const uint32_t name = Get32(record, 12);
    if (name == 0) break;
    std::string text = NameAt(name);
    // A table that points nowhere ends here, not after as many steps as it may have.
    if (text.empty()) break;
    names.push_back(std::move(text));
  }
  return names;
}

/// Looks an entry up in one of the three nested tables. Addresses in them count from the start of
/// the resources.
bool PeFile::FindResource(uint32_t table, uint32_t wanted, uint32_t& entry) const {
  std::string bytes;
  const uint64_t address = uint64_t{resources_.address} + table;
  if (address > UINT32_MAX || !ReadAt(static_cast<uint32_t>(address), 16, bytes)) return false;
  const uint32_t count = uint32_t{Get16(bytes, 12)} + Get16(bytes, 14);
  for (uint32_t i = 0; i < std::min(count, kMaxResourceEntries); ++i) {
    const uint64_t at = address + 16 + uint64_t{i} * 8;
    if (at > UINT32_MAX || !ReadAt(static_cast<uint32_t>(at), 8, bytes)) return false;
    if (wanted != kAny && Get32(bytes, 0) != wanted) continue;
    entry = Get32(bytes, 4);
    return true;
  }
  return false;
}

std::string PeFile::VersionResource() const {
  std::string bytes;
  if (resources_.address == 0) return bytes;
  // Type, name and language: three tables at most, so a table that names itself leads nowhere.
  uint32_t entry = 0;
  if (!FindResource(0, kVersionType, entry)) return bytes;
  for (int level = 0; level < 2 && (entry & kSubdirectory) != 0; ++level) {
    if (!FindResource(entry & ~kSubdirectory, kAny, entry)) return bytes;
  }
  const uint64_t data = uint64_t{resources_.address} + entry;
  if ((entry & kSubdirectory) != 0 || data > UINT32_MAX) return bytes;
  if (!ReadAt(static_cast<uint32_t>(data), 16, bytes)) return {};
  const uint32_t address = Get32(bytes, 0);
  const uint32_t size = Get32(bytes, 4);
  uint64_t offset = 0;
  uint64_t left = 0;
  if (!Locate(address, offset, left) || size > left) return {};
  if (size > kMaxVersionBytes) throw std::bad_alloc();
  return source_->Read(offset, size, bytes) ? bytes : std::string();
}

}  // namespace kel
