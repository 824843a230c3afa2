#pragma once

#include <cstddef>

namespace tamber {

// Sanitizers must see every use after the end.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kPooled = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kPooled = false;
#else
inline constexpr bool kPooled = true;
#endif
#else
inline constexpr bool kPooled = true;
#endif

/// Memory for a variable, or a part of what is being compiled, from a free list of this thread when
/// it is small. Throws std::bad_alloc.
void* PoolAllocate(size_t size);
void PoolFree(void* memory, size_t size);

}  // namespace tamber
