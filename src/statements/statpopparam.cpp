#include "statements/statpopparam.h"

void StatementPopParam::Dump(KelString& out, uint32_t) const {
  out.AppendPrintf("Pop into param %S%S\r\n", isReference_ ? "&" : "", name_.View());
}
