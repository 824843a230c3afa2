#include "statements/statlist.h"

#include <iterator>

void StatementList::MoveTo(StatementList& other) {
  other.statements_.insert(other.statements_.end(), std::make_move_iterator(statements_.begin()),
                           std::make_move_iterator(statements_.end()));
  statements_.clear();
}

void StatementList::Dump(KelString& out, const KelString& procedureName) const {
  out.AppendPrintf("\r\nStatement dump for procedure %S:\r\n", procedureName);
  for (uint32_t i = 1; i <= GetCount(); ++i) {
    out.AppendPrintf("%3u - ", i);
    Get(i).Dump(out, i);
  }
}
