#include "values/varchar.h"

template class tamber::VarScalar<VarChar>;

void VarChar::SetCharValue(char value) { cell_.i = static_cast<signed char>(value); }
