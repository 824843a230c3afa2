#pragma once

#include <cstddef>

namespace kel {

/// Whether a block of this size can be had without driving the machine out of memory.
///
/// The system promises more memory than it has and ends the process that then uses it, host
/// included. So a large block is asked for only when that much is free, for this process's control
/// group too where it has a limit; a small one is always tried.
bool CanAllocate(size_t bytes);

}  // namespace kel
