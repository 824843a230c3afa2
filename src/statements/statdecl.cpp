#include "statements/statdecl.h"

void StatementDeclare::Dump(KelString& out, uint32_t) const {
  out.AppendPrintf("Local Declare %S %S\r\n", typeWord_.View(), name_.View());
}
