#pragma once

#include <cstdint>

#include "kel/filepolicy.h"

namespace kel {

/// Moves a file away that `more` bytes would make longer than `limit`: to its name and ".1", what
/// stands there to ".2", and so on up to `kept`; with none to keep it is deleted. Processes that
/// share the file lose nothing that they append meanwhile. Only regular files are moved, links
/// stay.
void RotateFile(const Place& place, uint64_t limit, uint32_t kept, uint64_t more);

}  // namespace kel
