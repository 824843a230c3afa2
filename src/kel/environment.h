#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kel {

/// The value of an environment variable; empty when there is none of that name, or no such name
/// can be ("", "a=b").
std::optional<std::string> GetEnvironment(std::string_view name);

}  // namespace kel
