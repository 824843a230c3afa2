#include "statements/statpopvar.h"

void StatementPopVar::Dump(KelString& out, uint32_t) const {
  out.AppendPrintf("Pop into variable %S\r\n", variable_.name.View());
}
