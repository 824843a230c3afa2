#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "generator/program.h"

namespace generator {

/// What programs may hold, each to be left out by its name.
struct Features {
  bool anyDivision = true;     // "anyDivision": a zero divisor outside plain assignments of numbers
  bool doubleLiterals = true;  // "doubleLiterals": float literals where a double is wanted
  bool runTimeTypes = true;    // "runTimeTypes": Min and Max, elements of generic arrays
  bool genericStores = true;   // "genericStores": changes through generic reference parameters
  bool absentLocals = true;    // "absentLocals": locals whose declaration does not run
  bool exports = true;         // "exports": locals that Export makes global
  bool partReferences = true;  // "partReferences": references to elements and members
  bool handlers = true;        // "handlers": handler procedures, which change what is in use
  bool failingCalls = true;    // "failingCalls": built-ins that fail anywhere in an expression
  bool bounds = true;          // "bounds": indexes that are not there
  bool targetCalls = true;     // "targetCalls": calls in the index of a target
  bool evaluated = true;       // "evaluated": expressions evaluated from strings
  bool realLogic = true;       // "realLogic": reals as operands of && and ||
  bool aggregates = true;      // "aggregates": copies of whole arrays and structures

  /// The features that the engine does not bear yet are off.
  static Features Sound();
  /// False when there is no such feature.
  bool Set(const std::string& name, bool on);
};

/// The program of a seed; the same one every time.
Program Grow(uint64_t seed, const Features& features);

}  // namespace generator
