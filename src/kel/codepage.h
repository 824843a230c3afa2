#pragma once

#include <string>
#include <string_view>

/// Code pages, by number ("1252", "65001") or by a name that the system's converter knows.
namespace kel {

/// The converter's name for a code page; "" when there is no such page.
std::string CodePageName(std::string_view page);

/// Converts between two named code pages. False when the text is not valid in the one, or cannot be
/// expressed in the other.
bool ConvertCodePage(std::string_view text, const std::string& from, const std::string& to,
                     std::string& out);

}  // namespace kel
