#pragma once

#include <memory>

#include "functions/modulelist.h"

namespace tamber {

class ContextState;

/// The list of the modules that a context loads.
std::unique_ptr<ModuleList> MakeModuleList(ContextState& state);

}  // namespace tamber
