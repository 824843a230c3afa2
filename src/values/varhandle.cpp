#include "values/varhandle.h"

#include "values/cellops.h"

using tamber::Name;
using tamber::TypeDesc;

VarHandle::VarHandle(const KelString& name, const KelString& handleTypeName, uint32_t flags)
    : VarHandle(TypeDesc::HandleOf(Name(handleTypeName.View())), Name(name.View()), flags) {}

VarHandle::VarHandle(const KelString& name, uint32_t flags)
    : VarHandle(TypeDesc::Of(tamber::Kind::Handle), Name(name.View()), flags) {}

Variable* VarHandle::Clone() const { return new VarHandle(*this); }
void VarHandle::SetHandleValue(void* value) { cell_.p = value; }
int32_t VarHandle::GetBoolValue() const { return tamber::CellToBool(kind_, cell_); }
int32_t VarHandle::GetIntegerValue() const { return tamber::CellToInt(kind_, cell_); }
void* VarHandle::GetHandleValue() const { return cell_.p; }
KelString VarHandle::GetHandleName() const { return KelString(type_->HandleName().View()); }
