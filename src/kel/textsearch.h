#pragma once

#include <cstddef>
#include <string_view>

/// Finding text in text in linear time, with and without regard to ASCII case.
namespace kel {

inline constexpr size_t kTextNotFound = std::string_view::npos;

/// Position of the first occurrence at or after `from`, or `kTextNotFound`. An empty part is found
/// at `from`.
size_t FindText(std::string_view text, std::string_view part, bool caseSensitive, size_t from = 0);

}  // namespace kel
