#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kel/filepolicy.h"
#include "kel/filestatus.h"

namespace kel {

struct ImportOptions {
  bool resolve = false;  ///< give the paths at which modules are found
  bool recurse = false;  ///< also what the modules that are found import themselves
};

/// The modules that an executable needs: the import table of a PE file, the needed libraries of an
/// ELF file. Each is given once, those of the file first, then those of its modules.
///
/// Modules are looked for beside the file that needs them; then, for PE, in the directories of
/// PATH, for ELF in those of LD_LIBRARY_PATH, of /etc/ld.so.conf and its kind, and the system's
/// own. One that is not found stands with its name. NotValid: neither kind of executable.
FileStatus ListImports(const FilePolicy& policy, std::string_view path,
                       const ImportOptions& options, std::vector<std::string>& modules);

}  // namespace kel
