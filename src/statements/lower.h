#pragma once

#include <memory>

#include "machine/code.h"

class TamberProcedure;

namespace tamber {

/// Turns the statements of a compiled procedure into code. `observed`: the code
/// counts statements, and its locals are at any moment what dumps and traces have to show.
/// Null: the procedure is too large for the instruction format.
std::unique_ptr<Code> LowerProcedure(const TamberProcedure& procedure, bool observed);

}  // namespace tamber
