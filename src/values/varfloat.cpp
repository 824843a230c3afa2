#include "values/varfloat.h"

template class tamber::VarScalar<VarFloat>;

void VarFloat::SetFloatValue(float value) { cell_.f = value; }
