#include "context/handletable.h"

#include <atomic>
#include <new>

#include "machine/runlimits.h"

namespace tamber {
namespace {

/// From 1 to 2^31-1, then from 1 again.
int32_t NextId() {
  static std::atomic<uint32_t> counter{0};
  constexpr uint32_t kCount = 0x7FFFFFFF;
  return static_cast<int32_t>(counter.fetch_add(1, std::memory_order_relaxed) % kCount) + 1;
}

}  // namespace

int32_t HandleTable::Insert(Entry entry) {
  RunLimits* const limits = run_.Limits();
  if (limits != nullptr && !limits->Allows(Limit::handles, entries_.size() + 1)) {
    limits->Refuse(Limit::handles);
    throw std::bad_alloc();
  }
  while (true) {
    const int32_t id = NextId();
    if (entries_.contains(id)) continue;
    entries_.emplace(id, std::move(entry));
    return id;
  }
}

void* HandleTable::FindObject(int32_t id, const void* kind) const {
  const auto found = entries_.find(id);
  return found != entries_.end() && found->second.kind == kind ? found->second.object.get()
                                                               : nullptr;
}

bool HandleTable::Release(int32_t id, const void* kind) {
  // The object may use the table while it is destroyed.
  return FindObject(id, kind) != nullptr && !entries_.extract(id).empty();
}

void* HandleTable::ToPointer(int32_t id) {
  return reinterpret_cast<void*>(static_cast<intptr_t>(id));
}

int32_t HandleTable::FromPointer(const void* value) {
  const auto number = reinterpret_cast<intptr_t>(value);
  return number > 0 && number <= INT32_MAX ? static_cast<int32_t>(number) : 0;
}

}  // namespace tamber
