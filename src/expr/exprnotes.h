#pragma once

#include <span>
#include <string>
#include <string_view>

#include "values/errnotes.h"
#include "values/typedesc.h"

class ExpressionBase;
class FunctionList;

namespace kel {
class NearestName;
}

namespace tamber {

class Callable;
class ExpressionNames;
class LocalTable;

// What is told below the errors of expressions. All of it is made when an error is.

/// "did you mean", when a name that is known is near. `locals` may be null; `callable`: it was
/// written as a call.
void NoteUnknownName(ExpressionNames& names, const LocalTable* locals, std::string_view name,
                     bool callable, ErrorNotes& notes);
/// The same, for a search to which names have been offered.
void NoteNearest(const kel::NearestName& nearest, ErrorNotes& notes);
/// The members that a structure has, and the one that may have been meant.
void NoteMembers(const StructLayout& layout, std::string_view member, ErrorNotes& notes);
/// The types of the operands of an operator.
void NoteOperands(const ExpressionBase& node, ErrorNotes& notes);
/// The types that a function was called with, and the prototypes that exist.
void NotePrototypes(const FunctionList& functions, std::string_view name,
                    std::span<const TypeDesc* const> arguments, ErrorNotes& notes);
/// The number of arguments, and what the procedure takes.
void NoteParameters(const Callable& procedure, size_t arguments, ErrorNotes& notes);
/// An argument, from 0, and the parameter that does not take it.
void NoteArgument(const Callable& procedure, size_t argument, const TypeDesc& type,
                  ErrorNotes& notes);

}  // namespace tamber
