#include "kel/memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>

#include "kel/file.h"
#include "kel/stop.h"

namespace kel {
namespace {

/// Blocks below this are not worth a look at the system.
constexpr size_t kLarge = size_t{64} << 20;
/// What is left to the host and to other processes.
constexpr uint64_t kReserve = uint64_t{256} << 20;

/// The number behind `key` in a file of the system; `fallback` when there is none.
uint64_t NumberIn(const char* path, std::string_view key, uint64_t fallback) {
  std::string text;
  if (ReadRegularFile(path, text, 1 << 20) != ReadStatus::Ok) return fallback;
  size_t at = text.find(key);
  if (at == std::string::npos) return fallback;
  at = text.find_first_not_of(" :\t", at + key.size());
  uint64_t number = 0;
  if (at == std::string::npos) return fallback;
  auto [end, error] = std::from_chars(text.data() + at, text.data() + text.size(), number);
  return error == std::errc() ? number : fallback;
}

uint64_t FreeInSystem() {
  uint64_t kilobytes = NumberIn("/proc/meminfo", "MemAvailable", UINT64_MAX >> 10);
  return kilobytes << 10;
}

uint64_t FreeInGroup() {
  uint64_t limit = NumberIn("/sys/fs/cgroup/memory.max", "", UINT64_MAX);
  if (limit == UINT64_MAX) return limit;
  uint64_t used = NumberIn("/sys/fs/cgroup/memory.current", "", 0);
  return used < limit ? limit - used : 0;
}

}  // namespace

bool CanAllocate(size_t bytes) {
  if (bytes < kLarge) return true;
  return bytes + kReserve <= FreeInSystem() && bytes + kReserve <= FreeInGroup();
}

bool DropPages(void* block, size_t size) {
  if (size < kLarge) return true;
  // What the allocator knows of the block may stand on its first and last page.
  const auto page = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
  const auto from = reinterpret_cast<uintptr_t>(block);
  const uintptr_t begin = (from / page + 2) * page;
  const uintptr_t end = ((from + size) / page - 1) * page;
  for (uintptr_t at = begin; at < end; at += kLarge) {
    if (IsEnding()) return false;
    ::madvise(static_cast<char*>(block) + (at - from), std::min<size_t>(kLarge, end - at),
              MADV_DONTNEED);
  }
  return true;
}

}  // namespace kel
