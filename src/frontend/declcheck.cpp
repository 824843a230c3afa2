#include "frontend/declcheck.h"

#include "frontend/compilehost.h"
#include "values/errcodes.h"

namespace tamber {

bool CheckDeclaredName(CompileHost& host, const KelString& name) {
  if (name.IsEmpty()) {
    host.SetError(ERR_VAREXISTS, name);
    return false;
  }
  host.ForgetInherited(name);
  return host.CheckUniqueVar(name, VARLIST_GLOBAL) != 0;
}

bool CheckProcedureName(CompileHost& host, const KelString& name) {
  if (name.IsEmpty()) {
    host.SetError(ERR_VARBADNAME, name);
    return false;
  }
  host.ForgetInherited(name);
  if (host.CheckUniqueVar(name, VARLIST_GLOBAL) != 0) return true;
  const int32_t code = host.Error();
  if (code == ERR_VARISSTATEMENT || code == ERR_VARISPROC) {
    const ErrorNotes notes = host.Run().notes;
    host.SetError(ERR_PROCDUPLICATE, name);
    host.Run().notes = notes;
  }
  return false;
}

}  // namespace tamber
