#include "statements/statpushvar.h"

void StatementPushVar::Dump(KelString& out, uint32_t) const {
  out.AppendPrintf("Push variable %S\r\n", variable_.name.View());
}
