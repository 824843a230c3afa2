#include "statements/statarray.h"

void StatementArrayOp::Dump(KelString& out, uint32_t) const {
  out += GetKind() == STATEMENT_SHRINK ? "Shrink Array"
         : GetKind() == STATEMENT_GROW ? "Grow Array"
                                       : "Append Array";
  out += "\r\n";
}
