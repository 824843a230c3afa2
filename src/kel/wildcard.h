#pragma once

#include <string_view>

namespace kel {

/// Whether the whole value matches a pattern in which "*" stands for any bytes, none included, and
/// "?" for any one byte. Without case, ASCII letters match in both forms.
///
/// Only the last "*" passed is ever taken up again, so the time never grows beyond the product of
/// the two lengths; parts of a long pattern without "?" are found in linear time.
bool WildcardMatch(std::string_view value, std::string_view pattern, bool caseSensitive);

}  // namespace kel
