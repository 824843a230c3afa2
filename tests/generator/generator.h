#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "generator/program.h"

namespace generator {

/// What a program must do.
struct Expectation {
  std::string output;
  int error = 0;       // of the last run
  int runs = 0;        // how often main is to be run
  bool open = false;   // the output only begins like this, and the end is anybody's
  bool usable = true;  // not so when it takes too many steps
};

constexpr int kAnyFatal = 20000;

/// The program of a seed; the same one every time.
Program Grow(uint64_t seed);
/// Runs the program without the engine.
Expectation Predict(const Program& program);
/// The program without what it can do without while `fails` still holds.
Program Shrink(Program program, const std::function<bool(const Program&)>& fails);

}  // namespace generator
