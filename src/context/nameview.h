#pragma once

#include <cstdint>

namespace tamber {

class ContextState;

/// What names meant in a context, for finding out whether they still mean the same there: variables
/// of its scopes but for the local one, types, functions, procedures and errors.
struct NameView {
  explicit NameView(const ContextState& state);
  bool operator==(const NameView&) const = default;

  uint64_t scopes;
  uint64_t types;
  uint64_t functions;
  uint64_t procedures;
  uint64_t errors;
  uint32_t modules;
};

}  // namespace tamber
