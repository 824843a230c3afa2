#include "values/vardouble.h"

template class tamber::VarScalar<VarDouble>;

void VarDouble::SetDoubleValue(double value) { cell_.d = value; }
