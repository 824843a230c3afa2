#pragma once

#include "machine/code.h"

class TamberProcedure;

namespace tamber {

/// Turns the statements of a compiled procedure into code. `observed`: the code
/// counts statements, and its locals are at any moment what dumps and traces have to show.
Lowered LowerProcedure(const TamberProcedure& procedure, bool observed);

}  // namespace tamber
