#include "values/varnone.h"

#include "values/cellops.h"
#include "values/valuedump.h"

Variable* VarNone::Clone() const { return new VarNone(*this); }

void VarNone::Dump(KelString& out, const KelString& indent) const {
  tamber::DumpVariable(out.Str(), *this, indent.View());
}

void VarNone::DumpValue(KelString&, const KelString&) const {}

void VarNone::DumpType(KelString& out, const KelString&, int32_t) const {
  out += tamber::TypeOf(*this)->Word();
}
