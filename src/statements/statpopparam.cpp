#include "statements/statpopparam.h"

void StatementPopParam::Dump(KelString& out, uint32_t) const {
  out.AppendPrintf("Pop into param %S\r\n", name_.View());
}
