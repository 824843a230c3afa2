#include "statements/procedure.h"

#include "values/cellops.h"
#include "values/variable.h"

TamberProcedure::TamberProcedure(const KelString& name,
                                 std::shared_ptr<const tamber::ScriptText> script)
    : Callable(name, std::move(script)) {}

TamberProcedure::~TamberProcedure() = default;

KelString TamberProcedure::Header() const {
  KelString out = GetName();
  out += "(";
  for (uint32_t i = 0; i < GetParameterCount(); ++i) {
    const tamber::Local& local = Locals().At(i);
    if (i > 0) out += ", ";
    std::unique_ptr<Variable, void (*)(Variable*)> prototype(
        tamber::MakeVariable(local.type, tamber::Name()), Variable::Delete);
    prototype->DumpType(out, KelString(), 0);
    out += local.isReference ? " &" : " ";
    out += local.name.View();
  }
  out += ")";
  return out;
}
