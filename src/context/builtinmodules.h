#pragma once

#include <vector>

#include "functions/module.h"

namespace tamber {

/// The registration records of the built-in modules, in the order in which contexts register them:
/// core, strings, system, directories, files. Whatever holds the modules and is linked with the
/// context defines it; the context only asks.
std::vector<const FUNCMOD_REGISTRATION*> BuiltInModules();

}  // namespace tamber
