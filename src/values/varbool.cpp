#include "values/varbool.h"

template class tamber::VarScalar<VarBoolean>;

void VarBoolean::SetBoolValue(int32_t value) { cell_.i = value != 0; }
