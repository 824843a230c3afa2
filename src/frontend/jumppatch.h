#pragma once

#include <cstdint>

#include "statements/statbase.h"

class StatementList;

/// Jumps are made in two steps: while a block is compiled its ends are not known, so jumps out of
/// it are placeholders, or jumps with no offset, until here they get their targets.
namespace tamber {

/// Lets the conditional jump `jump` go to statement `target`.
void SetJumpTarget(StatementList& statements, uint32_t jump, uint32_t target);

/// Turns the placeholders of one kind among the statements `from` to the last into jumps to
/// `target`.
void ResolvePlaceholders(StatementList& statements, uint32_t from, enum_StatementKind kind,
                         uint32_t target);

/// Appends a jump back to `target`.
void AppendJump(StatementList& statements, uint32_t line, uint32_t target);

}  // namespace tamber
