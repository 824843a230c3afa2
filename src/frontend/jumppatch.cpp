#include "frontend/jumppatch.h"

#include <memory>

#include "statements/statgoto.h"
#include "statements/statlist.h"

namespace tamber {

namespace {

int32_t OffsetTo(uint32_t target, uint32_t from) {
  return static_cast<int32_t>(target) - static_cast<int32_t>(from);
}

}  // namespace

void SetJumpTarget(StatementList& statements, uint32_t jump, uint32_t target) {
  const uint32_t line = statements.Get(jump).GetLine();
  statements.Replace(jump,
                     std::make_unique<StatementGoto>(line, true, false, OffsetTo(target, jump)));
}

void ResolvePlaceholders(StatementList& statements, uint32_t from, enum_StatementKind kind,
                         uint32_t target) {
  for (uint32_t index = from; index <= statements.GetCount(); ++index) {
    if (statements.Get(index).GetKind() != kind) continue;
    const uint32_t line = statements.Get(index).GetLine();
    statements.Replace(
        index, std::make_unique<StatementGoto>(line, false, false, OffsetTo(target, index)));
  }
}

void AppendJump(StatementList& statements, uint32_t line, uint32_t target) {
  const uint32_t index = statements.GetCount() + 1;
  statements.Append(std::make_unique<StatementGoto>(line, false, false, OffsetTo(target, index)));
}

}  // namespace tamber
