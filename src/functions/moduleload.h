#pragma once

#include "functions/modulelist.h"

namespace tamber {

/// Finds what a script includes and loads it: a module file (".tbx", ".dll" or ".so", in any case)
/// or a script. `handle`, which may be null, receives the library's handle. Each file is loaded
/// once; false leaves error 20117 or 20118, or that of the script, in the host.
[[nodiscard]] bool LoadModuleFile(ModuleList& modules, const KelString& file,
                                  const KelString& callingScript, void** handle);

/// The directories in which `file` is looked for, separated by ";".
KelString ModuleSearchPath(const ModuleHost& host, const KelString& file,
                           const KelString& callingScript);

}  // namespace tamber
