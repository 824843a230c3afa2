#include "statements/statpopassign.h"

void StatementPopAssign::Dump(KelString& out, uint32_t) const { out += "Pop assign\r\n"; }
