#pragma once

#include "machine/code.h"

class ExpressionBase;

namespace tamber {

/// Turns an expression outside any procedure into code that leaves its value on the stack.
Lowered LowerExpression(const ExpressionBase& expression);

}  // namespace tamber
