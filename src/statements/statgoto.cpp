#include "statements/statgoto.h"

void StatementGoto::Dump(KelString& out, uint32_t index) const {
  std::string_view format = !conditional_ ? "Goto %i\r\n"
                            : jumpOnTrue_ ? "On True Goto %i\r\n"
                                          : "On False Goto %i\r\n";
  out.AppendPrintf(format, static_cast<int32_t>(index) + offset_);
}
