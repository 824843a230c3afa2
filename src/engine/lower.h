#pragma once

#include <memory>

#include "engine/code.h"

class ExpressionBase;
class TamberProcedure;

namespace tamber {

/// Turns the statements of a compiled procedure into code. `traced`: the code counts statements.
/// Null: the procedure is too large for the instruction format.
std::unique_ptr<Code> LowerProcedure(const TamberProcedure& procedure, bool traced);

/// Turns an expression outside any procedure into code that leaves its value on the stack.
std::unique_ptr<Code> LowerExpression(const ExpressionBase& expression);

}  // namespace tamber
