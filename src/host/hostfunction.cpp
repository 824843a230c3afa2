#include "host/hostfunction.h"

#include "context/contextstate.h"
#include "functions/prototype.h"
#include "kel/kelascii.h"
#include "values/errcodes.h"

namespace tamber::host {
namespace {

/// The reason why scripts could not call a function of this name; 0 when they can.
int32_t RefusalOf(TamberContext& context, const KelString& name) {
  if (name.IsEmpty() || kel::IsDigit(name[0])) return ERR_VARBADNAME;
  const ErrorRecord kept(context.State());
  if (context.CheckUniqueVar(name, VARLIST_GLOBAL | VARLIST_EXTERNAL)) return ERR_SUCCESS;
  const int32_t code = context.GetContextError();
  return code == ERR_VARISFUNC ? int32_t{ERR_SUCCESS} : code;  // another overload
}

}  // namespace

void RefuseFunction(TamberContext& context, int32_t code, const KelString& text) {
  context.State().RefuseRegistration(code, text);
  context.State().debug.Log(KelDebug::Level::Error, text);
}

std::shared_ptr<TamberFunction> NewFunction(TamberContext& context, std::string_view text) {
  Prototype prototype;
  KelString message;
  if (!ParsePrototype(text, context, FunctionList::FUNCTYPE_NORMAL, prototype, message)) {
    RefuseFunction(context, ERR_VARBADTYPE, message.IsEmpty() ? KelString(text) : message);
    return nullptr;
  }
  if (const int32_t refusal = RefusalOf(context, prototype.name)) {
    RefuseFunction(context, refusal, prototype.name);
    return nullptr;
  }
  return std::make_shared<TamberFunction>(prototype.name, prototype.returnValue.release(),
                                          prototype.parameters.release(),
                                          static_cast<uint16_t>(FunctionList::FUNCTYPE_NORMAL));
}

}  // namespace tamber::host
