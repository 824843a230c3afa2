#include "statements/statcall.h"

void StatementCallScript::Dump(KelString& out, uint32_t) const { out += "Call script\r\n"; }
