#pragma once

#include <string>
#include <vector>

namespace kel {

/// Names of the libraries that an ELF file needs, in its own order; false when the open file is
/// none.
bool NeededLibraries(int descriptor, std::vector<std::string>& names);

}  // namespace kel
