#pragma once

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

/// Runs the program without the engine.
Expectation Predict(const Program& program);

}  // namespace generator
