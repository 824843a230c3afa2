#pragma once

#include <cstdint>

class TamberType;
class Variable;

namespace tamber {

class Callable;

/// All that a name means where a body is compiled, but for what a variable of that name hides.
/// Every member but the slot is borrowed from the context.
struct KnownName {
  int32_t slot = -1;  ///< of the body's local; -1: none
  Variable* global = nullptr;
  const Variable* constant = nullptr;
  Variable* external = nullptr;
  Callable* procedure = nullptr;
  uint32_t function = 0;  ///< first overload; 0: none
  const TamberType* type = nullptr;
  bool isFree = false;  ///< a local may have the name: it has been asked before

  bool IsVariable() const {
    return slot >= 0 || global != nullptr || constant != nullptr || external != nullptr;
  }
};

}  // namespace tamber
