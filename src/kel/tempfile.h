#pragma once

#include <cstdint>
#include <string>

#include "kel/descriptor.h"
#include "kel/filepolicy.h"
#include "kel/filestatus.h"

namespace kel {

/// The directory for temporary files, without a separator at the end.
std::string TemporaryDirectory();

/// Makes an empty file that only its owner may touch, with a name that nobody can guess, and gives
/// the name.
FileStatus CreateTemporary(const FilePolicy& policy, const std::string& dir,
                           const std::string& prefix, std::string& path);

/// An open file without a name, which is gone when it is closed.
Descriptor OpenNamelessFile();

/// How long an open file is now.
uint64_t FileLength(int descriptor);

}  // namespace kel
