#pragma once

#include <memory>

class ExpressionBase;

namespace tamber {

class Code;

/// Turns an expression outside any procedure into code that leaves its value on the stack. Null: it
/// is too large for the instruction format.
std::unique_ptr<Code> LowerExpression(const ExpressionBase& expression);

}  // namespace tamber
