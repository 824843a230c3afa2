#pragma once

#include <string>
#include <string_view>

#include "kel/filestatus.h"

/// Paths that the host names, as against those of its scripts.
///
/// There is one current directory in a process, and scripts may move it. What the host has named
/// relative to its own directory (reports, the INI file, stores) stays where the host meant it.
namespace kel {

/// The path of the host's, usable wherever scripts have moved the process: the path itself while
/// none has. "" when the host's directory is gone.
std::string HostPath(std::string_view path);
/// The same made absolute, so that not even the host moves it any more.
std::string SettledHostPath(std::string_view path);

/// Makes an open directory the current one, for a script; 0, or -1 with errno.
int MoveForScript(int directory);

}  // namespace kel
