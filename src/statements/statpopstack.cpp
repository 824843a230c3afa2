#include "statements/statpopstack.h"

void StatementPopStack::Dump(KelString& out, uint32_t) const { out += "Pop Stack\r\n"; }
