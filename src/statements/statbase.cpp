#include "statements/statbase.h"

void StatementBase::Dump(KelString& out, uint32_t) const {
  switch (kind_) {
    case STATEMENT_RETURN:
      out += "Return";
      break;
    case STATEMENT_BREAK:
      out += "Break";
      break;
    case STATEMENT_CONTINUE:
      out += "Continue";
      break;
    case STATEMENT_ENDBRANCH:
      out += "End of branch";
      break;
    default:
      break;
  }
  out += "\r\n";
}
