#pragma once

#include "values/typedesc.h"

class Variable;

namespace tamber {

/// Whether values of type `given` lie in memory as code for `wanted` takes for granted. That is
/// more than being the same type: structures of one name can have different members when a called
/// script, or a host, defines the name anew.
bool HasLayoutOf(const TypeDesc& given, const TypeDesc& wanted);
bool HasLayoutOf(const Variable& variable, const TypeDesc& wanted);

}  // namespace tamber
