#pragma once

#include <string>
#include <string_view>

#include "values/variable.h"

namespace tamber {

/// Texts of Variable::Dump, DumpValue and DumpType for every class.
void DumpVariable(std::string& out, const Variable& variable, std::string_view indent);
void DumpVariableValue(std::string& out, const Variable& variable, std::string_view indent);

/// The text with control bytes, quotes and backslashes written as escapes.
void AppendEscaped(std::string& out, std::string_view text);

}  // namespace tamber
