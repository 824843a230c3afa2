#pragma once

#include <string>
#include <string_view>

/// Shared libraries that are loaded while the process runs.
namespace kel {

/// Loads a library by its path, with all of its symbols bound and none shown to other libraries.
/// A path without a separator means the current directory, never the system's search path. Null
/// with a reason in `error` when that fails.
void* LoadLibraryFile(std::string_view path, std::string& error);

/// The address of an exported symbol, or null.
void* FindSymbol(void* library, const char* name);

/// Gives back what `LoadLibraryFile` gave. The code goes away with the last user; null is ignored.
void FreeLibraryFile(void* library);

}  // namespace kel
