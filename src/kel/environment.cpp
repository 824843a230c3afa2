#include "kel/environment.h"

#include <cstdlib>

namespace kel {

std::optional<std::string> GetEnvironment(std::string_view name) {
  if (name.empty() || name.find_first_of(std::string_view("=\0", 2)) != std::string_view::npos) {
    return std::nullopt;
  }
  const char* value = std::getenv(std::string(name).c_str());
  return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

}  // namespace kel
