#include "statements/procedure.h"

#include "machine/code.h"
#include "values/cellops.h"
#include "values/variable.h"

TamberProcedure::TamberProcedure(const KelString& name,
                                 std::shared_ptr<const tamber::ScriptText> script)
    : name_(name), script_(std::move(script)) {}

TamberProcedure::~TamberProcedure() = default;

tamber::Code* TamberProcedure::SetCode(bool observed, std::unique_ptr<tamber::Code> code) {
  code_[observed] = std::move(code);
  return code_[observed].get();
}

KelString TamberProcedure::Header() const {
  KelString out = name_;
  out += "(";
  for (uint32_t i = 0; i < parameterCount_; ++i) {
    const tamber::Local& local = locals_.At(i);
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
