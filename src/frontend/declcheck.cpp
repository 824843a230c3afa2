#include "frontend/declcheck.h"

#include "context/contextstate.h"
#include "kel/kelascii.h"
#include "values/errcodes.h"

namespace tamber {

void ForgetInherited(TamberContext& context, const KelString& name) {
  std::set<std::string>& inherited = context.State().inherited;
  if (inherited.empty() || inherited.erase(kel::Lowered(name)) == 0) return;
  for (const enum_VarListType scope : {VARLIST_GLOBAL, VARLIST_CONSTANT, VARLIST_EXTERNAL}) {
    Variable::Delete(context.RemoveVariable(name, scope));
  }
  context.DeleteProcedure(name);
  for (const KelString& word : {name, name + "[]"}) {
    const uint32_t type = context.FindType(word);
    if (type != TypeList::kNotFound) context.DeleteType(type);
  }
}

bool CheckDeclaredName(TamberContext& context, const KelString& name) {
  if (name.IsEmpty()) {
    context.SetContextError(ERR_VAREXISTS, name);
    return false;
  }
  ForgetInherited(context, name);
  return context.CheckUniqueVar(name, VARLIST_GLOBAL) != 0;
}

bool CheckProcedureName(TamberContext& context, const KelString& name) {
  if (name.IsEmpty()) {
    context.SetContextError(ERR_VARBADNAME, name);
    return false;
  }
  ForgetInherited(context, name);
  if (context.CheckUniqueVar(name, VARLIST_GLOBAL) != 0) return true;
  const int32_t code = context.GetContextError();
  if (code == ERR_VARISSTATEMENT || code == ERR_VARISPROC) {
    context.SetContextError(ERR_PROCDUPLICATE, name);
  }
  return false;
}

}  // namespace tamber
