#include "kel/bytesource.h"

#include "kel/fileio.h"

namespace kel {

bool FileSource::Read(uint64_t offset, uint64_t size, std::string& out) const {
  out.clear();
  if (offset > size_ || size > size_ - offset) return false;
  out.resize(size);
  if (ReadFullAt(descriptor_, offset, out.data(), size) == static_cast<int64_t>(size)) return true;
  out.clear();
  return false;
}

}  // namespace kel
