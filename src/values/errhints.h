#pragma once

#include <cstdint>
#include <string_view>

namespace tamber {

/// What may help somebody who knows other languages with an error that is about `detail`: what a
/// foreign word or sign is here, or how the statement is written. "" when there is nothing to say.
std::string_view UsualHint(int32_t code, std::string_view detail);

/// Where the name of a file is wanted and something else stands.
inline constexpr const char* kFileNameHint = "the name of a file is written in double quotes";

}  // namespace tamber
