#pragma once

#include <memory>

#include "machine/code.h"

class ExpressionBase;
class TamberProcedure;

namespace tamber {

/// Turns the statements of a compiled procedure into code. `observed`: the code
/// counts statements, and its locals are at any moment what dumps and traces have to show.
/// Null: the procedure is too large for the instruction format.
std::unique_ptr<Code> LowerProcedure(const TamberProcedure& procedure, bool observed);

/// Turns an expression outside any procedure into code that leaves its value on the stack.
std::unique_ptr<Code> LowerExpression(const ExpressionBase& expression);

}  // namespace tamber
