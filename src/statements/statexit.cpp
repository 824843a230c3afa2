#include "statements/statexit.h"

void StatementExit::Dump(KelString& out, uint32_t) const { out += "Exit Script\r\n"; }
