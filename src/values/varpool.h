#pragma once

#include <cstddef>

namespace tamber {

/// Memory for a variable, from the free list of this thread when it is small. Throws
/// std::bad_alloc.
void* PoolAllocate(size_t size);
void PoolFree(void* memory, size_t size);

}  // namespace tamber
