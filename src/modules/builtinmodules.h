#pragma once

#include <vector>

#include "functions/module.h"

namespace tamber {

/// The registration records of the built-in modules, in the order in which contexts register them:
/// core, strings, system, directories, files.
std::vector<const FUNCMOD_REGISTRATION*> BuiltInModules();

}  // namespace tamber
