#pragma once

#include <functional>

#include "generator/program.h"

namespace generator {

/// The program without what it can do without while `fails` still holds.
Program Shrink(Program program, const std::function<bool(const Program&)>& fails);

}  // namespace generator
