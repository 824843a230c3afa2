#pragma once

#include <memory>
#include <string_view>

#include "functions/function.h"

namespace tamber::host {

/// A function without an implementation, made from a prototype. Null with the context error set and
/// logged when the prototype cannot be read, or its name could never be called: it is none, or it
/// means something else to scripts.
std::shared_ptr<TamberFunction> NewFunction(TamberContext& context, std::string_view prototype);

/// Sets and logs the error of a registration.
void RefuseFunction(TamberContext& context, int32_t code, const KelString& text);

}  // namespace tamber::host
