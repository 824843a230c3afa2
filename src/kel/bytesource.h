#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kel {

/// Bytes that are looked at piece by piece: a file, or memory.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  virtual uint64_t Size() const = 0;
  /// Exactly `size` bytes from a position; false, with `out` empty, when they are not all there.
  virtual bool Read(uint64_t offset, uint64_t size, std::string& out) const = 0;
};

class MemorySource : public ByteSource {
 public:
  explicit MemorySource(std::string_view bytes) : bytes_(bytes) {}
  uint64_t Size() const override { return bytes_.size(); }
  bool Read(uint64_t offset, uint64_t size, std::string& out) const override {
    out.clear();
    if (offset > bytes_.size() || size > bytes_.size() - offset) return false;
    out = bytes_.substr(offset, size);
    return true;
  }

 private:
  std::string_view bytes_;
};

/// An open file, on loan. Whatever is no longer there when it is read counts as missing.
class FileSource : public ByteSource {
 public:
  FileSource(int descriptor, uint64_t size) : descriptor_(descriptor), size_(size) {}
  uint64_t Size() const override { return size_; }
  bool Read(uint64_t offset, uint64_t size, std::string& out) const override;

 private:
  int descriptor_;
  uint64_t size_;
};

}  // namespace kel
