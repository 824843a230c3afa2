#pragma once

#include <cstdint>

#include "kel/kelstring.h"

class ScriptLine;

namespace tamber {

class CompileHost;

/// Flags of the types that blocks define: those of modules survive a reset of the context.
enum StructFlags : uint32_t { kScriptStruct = 0, kModuleStruct = 1 };

/// Reads a structure block, of which "struct" has been read, up to its `endstruct`, and registers
/// the structure and its array as types. 0, or the error that has been set on the context; the
/// script then stands on the line it is about.
[[nodiscard]] int32_t DefineStructure(CompileHost& host, ScriptLine& script, StructFlags flags);

/// The same for members in the form "int Offset; int Length;", as modules give them.
[[nodiscard]] int32_t DefineStructureText(CompileHost& host, const KelString& name,
                                          const KelString& members, StructFlags flags);

}  // namespace tamber
