#pragma once

#include <string_view>

#include "kel/sessionstore.h"
#include "values/variable.h"

namespace tamber {

/// Writes a value under `key`: numbers as integers, floats and doubles as text that reads back
/// exactly, enciphered strings as they lie in memory. Elements and members go below the key, an
/// array's element count to the key itself. Handles are never stored.
void StoreValue(const Variable& variable, std::string_view key, SessionStore& store);
/// Writes only what differs from `before`, which the store holds under the same key.
void StoreChanges(const Variable& variable, const Variable& before, std::string_view key,
                  SessionStore& store);
/// Reads back what StoreValue wrote. What is absent stays as it is.
void LoadValue(Variable& variable, std::string_view key, SessionStore& store);

}  // namespace tamber
