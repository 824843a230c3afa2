#include "values/varpool.h"

#include <cstdint>
#include <cstdlib>
#include <new>

#include "values/account.h"

namespace tamber {
namespace {

/// Variables are small and have one list; what is larger has one for every 16 bytes more.
constexpr size_t kSmall = 40;
constexpr size_t kStep = 16;
constexpr size_t kLists = 9;
constexpr size_t kLargest = kSmall + kStep * (kLists - 1);
constexpr uint32_t kMaxFree[kLists] = {4096, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024};

constexpr size_t ListOf(size_t size) {
  return size <= kSmall ? 0 : (size - kSmall + kStep - 1) / kStep;
}
constexpr size_t BlockSizeOf(size_t list) { return kSmall + kStep * list; }

struct Block {
  Block* next;
};

/// Plain data, so that variables which are destroyed after the thread's own objects still find it.
struct FreeList {
  Block* head;
  uint32_t room;  ///< for so many more; none before the first block and after the thread's end
};
struct FreeLists {
  FreeList lists[kLists];
  bool armed;
};

thread_local FreeLists free_lists;

/// Those of this thread, from where they are found at once; null before the first use. The room
/// that the loader keeps for such variables has place for a pointer in libraries that are opened
/// late.
[[gnu::tls_model("initial-exec")]] constinit thread_local FreeLists* found_lists = nullptr;

FreeLists& Lists() {
  if (found_lists == nullptr) [[unlikely]] {
    found_lists = &free_lists;
  }
  return *found_lists;
}

/// Gives the list back when the thread ends.
struct FreeListOwner {
  FreeListOwner() = default;
  FreeListOwner(const FreeListOwner&) = delete;
  FreeListOwner& operator=(const FreeListOwner&) = delete;
  ~FreeListOwner() {
    for (FreeList& list : free_lists.lists) {
      while (list.head != nullptr) {
        Block* block = list.head;
        list.head = block->next;
        std::free(block);
      }
      list.room = 0;
    }
  }
  void Touch() {
    free_lists.armed = true;
    for (size_t which = 0; which < kLists; ++which) free_lists.lists[which].room = kMaxFree[which];
  }
};

thread_local FreeListOwner free_list_owner;

void* AllocateBlock(size_t size, size_t counted) {
  void* memory = std::malloc(size);
  if (memory == nullptr) [[unlikely]]
    FailCounted(counted);
  return memory;
}

}  // namespace

void* PoolAllocate(size_t size) {
  CountAllocated(size);
  if (!kPooled || size > kLargest) return AllocateBlock(size, size);
  const size_t which = ListOf(size);
  FreeList& list = Lists().lists[which];
  if (list.head == nullptr) return AllocateBlock(BlockSizeOf(which), size);
  Block* block = list.head;
  list.head = block->next;
  ++list.room;
  return block;
}

void PoolFree(void* memory, size_t size) {
  if (memory == nullptr) return;
  CountFreed(size);
  if (!kPooled || size > kLargest) return std::free(memory);
  FreeLists& all = Lists();
  if (!all.armed) free_list_owner.Touch();  // the first block of a thread arms its clean-up
  FreeList& list = all.lists[ListOf(size)];
  if (list.room == 0) return std::free(memory);
  --list.room;
  Block* block = static_cast<Block*>(memory);
  block->next = list.head;
  list.head = block;
}

}  // namespace tamber
