#pragma once

#include <string_view>

#include "kel/sessionstore.h"
#include "values/variable.h"

namespace tamber {

/// Writes a value under `key`: numbers as integers, floats and doubles as text that reads back
/// exactly, encrypted strings as they lie in memory, an array with all that it holds as one value
/// (PackArray). Members go below the key. Handles are never stored.
void StoreValue(const Variable& variable, std::string_view key, SessionStore& store);
/// Writes only what differs from `before`, which the store holds under the same key.
void StoreChanges(const Variable& variable, const Variable& before, std::string_view key,
                  SessionStore& store);
/// Reads back what StoreValue wrote, in this version or in those that stored arrays element by
/// element. What is absent stays as it is.
void LoadValue(Variable& variable, std::string_view key, SessionStore& store);

}  // namespace tamber
