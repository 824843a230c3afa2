#pragma once

#include <cstddef>

namespace kel {

/// Whether a block of this size can be had without driving the machine out of memory.
///
/// The system promises more memory than it has and ends the process that then uses it, host
/// included. So a large block is asked for only when that much is free, for this process's control
/// group too where it has a limit; a small one is always tried.
bool CanAllocate(size_t bytes);

/// Gives the pages of a block whose contents nobody needs any more back to the system, a part at a
/// time; the block itself stays. False when the thread was asked to stop before all were given.
bool DropPages(void* block, size_t size);

}  // namespace kel
