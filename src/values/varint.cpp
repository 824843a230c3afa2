#include "values/varint.h"

template class tamber::VarScalar<VarInteger>;

void VarInteger::SetIntegerValue(int32_t value) { cell_.i = value; }

void* VarInteger::GetHandleValue() const { return tamber::HandleOfInt(cell_.i); }
