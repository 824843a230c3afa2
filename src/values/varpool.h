#pragma once

#include <cstddef>

namespace tamber {

/// Memory for a variable, or a part of what is being compiled, from a free list of this thread when
/// it is small. Throws std::bad_alloc.
void* PoolAllocate(size_t size);
void PoolFree(void* memory, size_t size);

}  // namespace tamber
