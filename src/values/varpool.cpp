#include "values/varpool.h"

#include <cstdint>
#include <cstdlib>
#include <new>

namespace tamber {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kPooled = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kPooled = false;  // every use after the end must be seen
#else
constexpr bool kPooled = true;
#endif
#else
constexpr bool kPooled = true;
#endif

constexpr size_t kBlockSize = 48;
constexpr uint32_t kMaxFree = 4096;

struct Block {
  Block* next;
};

/// Plain data, so that variables which are destroyed after the thread's own objects still find it.
struct FreeList {
  Block* head;
  uint32_t count;
  bool closed;
};

thread_local FreeList free_list;

/// Gives the list back when the thread ends.
struct FreeListOwner {
  FreeListOwner() = default;
  FreeListOwner(const FreeListOwner&) = delete;
  FreeListOwner& operator=(const FreeListOwner&) = delete;
  ~FreeListOwner() {
    while (free_list.head != nullptr) {
      Block* block = free_list.head;
      free_list.head = block->next;
      std::free(block);
    }
    free_list.count = 0;
    free_list.closed = true;
  }
  void Touch() {}
};

thread_local FreeListOwner free_list_owner;

void* AllocateBlock(size_t size) {
  void* memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* PoolAllocate(size_t size) {
  if (!kPooled || size > kBlockSize) return AllocateBlock(size);
  FreeList& list = free_list;
  if (list.head == nullptr) return AllocateBlock(kBlockSize);
  Block* block = list.head;
  list.head = block->next;
  --list.count;
  return block;
}

void PoolFree(void* memory, size_t size) {
  FreeList& list = free_list;
  if (!kPooled || size > kBlockSize || memory == nullptr || list.closed || list.count >= kMaxFree) {
    std::free(memory);
    return;
  }
  if (list.count == 0) free_list_owner.Touch();  // the first block of a thread arms its clean-up
  Block* block = static_cast<Block*>(memory);
  block->next = list.head;
  list.head = block;
  ++list.count;
}

}  // namespace tamber
