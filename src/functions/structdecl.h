#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "values/typedesc.h"

class TypeList;

namespace tamber {

/// Reads declarations of structure members as a module gives them: "int Offset; string[] Names,
/// x;". A size may stand in the brackets, before or behind the name. False when a declaration is
/// malformed, names an unknown type or repeats a name; `fault` is then the offending word.
[[nodiscard]] bool ParseStructMembers(std::string_view text, const TypeList& types,
                                      std::vector<StructLayout::Member>& members,
                                      std::string& fault);

}  // namespace tamber
