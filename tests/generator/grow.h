#pragma once

#include <cstdint>

#include "generator/program.h"

namespace generator {

/// The program of a seed; the same one every time.
Program Grow(uint64_t seed);

}  // namespace generator
