#include <algorithm>
#include <bit>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "engine/arith.h"
#include "engine/tambops.h"
#include "functions/funclist.h"
#include "kel/kelascii.h"
#include "kel/stop.h"
#include "machine/callable.h"
#include "machine/machine.h"
#include "machine/machinecalls.h"
#include "machine/machinehost.h"
#include "machine/shape.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/errcodes.h"
#include "values/store.h"
#include "values/strbuf.h"
#include "values/structdata.h"
#include "values/varestring.h"

namespace tamber {
namespace {

/// While it lives, `%` by zero is an error of the operators, so that the machine can raise the
/// fault with its state in order.
class RemainderErrors {
 public:
  explicit RemainderErrors(TamberOperators& operators) : operators_(operators) {
    operators_.SetRemainderFaults(false);
  }
  RemainderErrors(const RemainderErrors&) = delete;
  RemainderErrors& operator=(const RemainderErrors&) = delete;
  ~RemainderErrors() { operators_.SetRemainderFaults(true); }

 private:
  TamberOperators& operators_;
};

/// Whether "+" joins a value of this kind to a string.
bool HasText(Kind kind) {
  return IsNumeric(kind) || kind == Kind::String || kind == Kind::EString || kind == Kind::Handle;
}

/// Whether a value can lie in the cell as it is: a host may have added members to a structure.
bool FitsAsItIs(Kind kind, const Cell& place, Cell value) {
  return kind != Kind::Struct || place.st->Layout().Get() == value.st->Layout().Get();
}

/// Texts end at their first NUL here, too.
int32_t CompareLargeTexts(std::string_view left, std::string_view right, bool caseSensitive) {
  while (true) {
    const std::string_view part = left.substr(0, kel::kBytesPerStep);
    const std::string_view other = right.substr(0, kel::kBytesPerStep);
    const int32_t difference = CompareText(part, other, caseSensitive);
    const bool ends = part.size() < kel::kBytesPerStep || part.find('\0') != std::string_view::npos;
    if (difference != 0 || ends) return difference;
    left.remove_prefix(part.size());
    right.remove_prefix(std::min(other.size(), part.size()));
    kel::CheckStop();
  }
}

/// The error for what is being handled: the function threw it.
int32_t ThrownError(const TamberFunction& function, KelString& text) {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return ERR_NOMEMORY;
  } catch (const std::exception& failure) {
    text = function.GetName() + ": " + failure.what();
  } catch (...) {
    text = function.GetName();
  }
  return ERR_INTERNAL;
}

void CallImplementation(const TamberFunction& function, FunctionCallInfo& call) {
  if (function.GetImplementation() != nullptr)
    function.GetImplementation()(&call);
  else
    function.GetExtendedImplementation()(&call, call.context);
}

}  // namespace

bool Machine::ResolveGlobal(GlobalSlot& slot) {
  Variable* variable = host_.FindOuter(slot.use->name);
  if (variable == nullptr) return Raise(ERR_VARNOTDECLARED, slot.use->name.View());
  slot.variable = variable;
  slot.cell = HasLayoutOf(*variable, *slot.use->type) ? CellOf(*variable) : nullptr;
  slot.found = run_.epoch | (slot.cell == nullptr ? GlobalSlot::kWithoutCell : 0);
  return true;
}

Variable* Machine::FindByName(const Name& name) {
  int32_t local = FindLocal(name.View());
  if (local >= 0) return GetLocal(static_cast<uint32_t>(local));
  const GlobalUse use{name, TypeDesc::Of(Kind::Any)};
  GlobalSlot slot{&use};
  return ResolveGlobal(slot) ? slot.variable : nullptr;
}

bool Machine::LoadVariableAs(const TypeDesc& type, Variable& variable, Cell& out) {
  Cell value = ZeroCell();
  if (!ConvertCell(type, *TypeOf(variable), *CellOf(variable), value))
    return RaiseMismatch(variable.OwnName().View(), type, *TypeOf(variable));
  out = value;
  return true;
}

bool Machine::LoadGlobal(GlobalSlot& slot, Cell& out) {
  if (!slot.IsFound(run_.epoch) && !ResolveGlobal(slot)) return false;
  if (slot.cell != nullptr) {
    out = *slot.cell;
    return true;
  }
  // The host has put a variable of another type in its place.
  Cell value = ZeroCell();
  if (!LoadVariableAs(*slot.use->type, *slot.variable, value)) return false;
  KeepConverted(slot.use->type->GetKind(), value);
  out = value;
  return true;
}

/// Keeps a value that a register borrows for as long as the statement may read it.
void Machine::KeepConverted(Kind kind, Cell value) {
  if (!IsManaged(kind)) return;
  const Frame& frame = frames_[frameCount_ - 1];
  const StatementEntry* statement = &StatementAt(frame);
  std::erase_if(converted_, [&](const Converted& old) {
    const bool inUse = old.depth < frameCount_ || (old.depth == frameCount_ &&
                                                   old.statement == statement && old.pc < frame.pc);
    if (!inUse) ReleaseCell(old.kind, old.cell);
    return !inUse;
  });
  converted_.push_back({frameCount_, statement, frame.pc, kind, value});
}

bool Machine::StoreGlobal(GlobalSlot& slot, Cell value, bool take) {
  if (!slot.IsFound(run_.epoch) && !ResolveGlobal(slot)) return NoVariable(slot.use->name, true);
  Kind kind = slot.use->type->GetKind();
  if (slot.cell != nullptr && FitsAsItIs(kind, *slot.cell, value)) {
    if (IsManaged(kind))
      StoreCell(kind, *slot.cell, take ? value : CopyCell(kind, value));
    else
      *slot.cell = value;
    return true;
  }
  if (!AssignTo(*slot.variable, *slot.use->type, value)) return false;
  if (take) ReleaseCell(kind, value);
  return true;
}

/// Where the cell of the global is not known: by its value.
bool Machine::AddToGlobal(GlobalSlot& slot, Kind kind, Cell value) {
  Cell sum = ZeroCell();
  if (!LoadGlobal(slot, sum)) return false;
  if (kind == Kind::Int)
    sum = IntCell(AddInt(sum.i, value.i));
  else
    sum.d += value.d;
  return StoreGlobal(slot, sum, false);
}

bool Machine::GlobalAddress(GlobalSlot& slot, Cell& out) {
  if (!slot.IsFound(run_.epoch) && !ResolveGlobal(slot)) return NoVariable(slot.use->name, true);
  if (slot.cell == nullptr)
    return RaiseMismatch(slot.use->name.View(), *slot.use->type, *TypeOf(*slot.variable));
  out.p = slot.cell;
  return true;
}

/// A lookup has failed; what is to be stored into has an error of its own.
bool Machine::NoVariable(const Name& name, bool stored) {
  return stored && Raise(ERR_NOEXTERNVAR, name.View());
}

Variable* Machine::LocalObject(const Code& code, Cell* registers, uint32_t slot, bool storing) {
  if (registers[slot].v != nullptr) return registers[slot].v;
  // Its declaration has not run, so the name means what it means outside.
  const GlobalUse use{code.procedure->Locals().At(slot).name, TypeDesc::Of(Kind::Any)};
  GlobalSlot outer{&use};
  if (ResolveGlobal(outer)) return outer.variable;
  NoVariable(outer.use->name, storing);
  return nullptr;
}

bool Machine::LoadObject(const Code& code, Cell* registers, const Instr& at) {
  Variable* variable = LocalObject(code, registers, at.b, false);
  if (variable == nullptr) return false;
  const TypeDesc& type = *code.procedure->Locals().At(at.b).type;
  if (HasLayoutOf(*variable, type)) {
    registers[at.a] = *CellOf(*variable);
    return true;
  }
  Cell value = ZeroCell();
  if (!LoadVariableAs(type, *variable, value)) return false;
  KeepConverted(type.GetKind(), value);
  registers[at.a] = value;
  return true;
}

bool Machine::StoreObject(const Code& code, Cell* registers, const Instr& at, bool take) {
  Variable* variable = LocalObject(code, registers, at.b, true);
  if (variable == nullptr) return false;
  const TypeDesc& type = *code.procedure->Locals().At(at.b).type;
  Kind kind = type.GetKind();
  Cell value = registers[at.a];
  if (!HasLayoutOf(*variable, type) || !FitsAsItIs(kind, *CellOf(*variable), value)) {
    if (!AssignTo(*variable, type, value)) return false;
    if (take) ReleaseCell(kind, value);
  } else if (IsManaged(kind)) {
    StoreCell(kind, *CellOf(*variable), take ? value : CopyCell(kind, value));
  } else {
    *CellOf(*variable) = value;
  }
  return true;
}

bool Machine::ObjectAddress(const Code& code, Cell* registers, uint32_t slot, Cell& out) {
  Variable* variable = LocalObject(code, registers, slot, true);
  if (variable == nullptr) return false;
  if (!HasLayoutOf(*variable, *code.procedure->Locals().At(slot).type))
    return RaiseMismatch(variable->OwnName().View(), *code.procedure->Locals().At(slot).type,
                         *TypeOf(*variable));
  out.p = CellOf(*variable);
  return true;
}

bool Machine::CheckReference(Variable& variable, const TypeDesc& type) {
  return HasLayoutOf(variable, type) || Raise(ERR_EXPRPARMTYPE, variable.OwnName().View());
}

bool Machine::AssignTo(Variable& target, const TypeDesc& type, Cell value) {
  const Place place = tamber::PlaceOf(target);
  const Stored stored = Assign(place, type, value);
  if (stored == Stored::Mismatch)
    return RaiseMismatch(target.OwnName().IsEmpty() ? TargetName() : target.OwnName().View(),
                         *place.declared, type);
  return Check(stored, target.OwnName().View());
}

/// The variable that the register at hand was reached from: elements and cells have no names.
std::string_view Machine::TargetName() const {
  const Frame& frame = frames_[frameCount_ - 1];
  const Code& code = frame.code->Tables();
  uint16_t reg = frame.pc->a;
  for (const Instr* at = frame.pc; at-- > code.instrs.data();) {
    const OpInfo& info = InfoOf(at->op);
    if (at->a != reg || !info.a.IsWritten()) continue;
    switch (info.b.holds) {
      case Holds::Global:
      case Holds::GlobalArray64:
        return code.globals[at->b].name.View();
      case Holds::Name:
        return code.names[at->b].View();
      case Holds::Local:
      case Holds::Object:
        return code.procedure->Locals().At(at->b).name.View();
      default:
        if (!info.b.IsRegister()) return {};
        reg = at->b;
    }
  }
  return {};
}

bool Machine::Check(Stored stored, std::string_view name) {
  switch (stored) {
    case Stored::Done:
      return true;
    case Stored::Mismatch:
      return Raise(ERR_ASSIGNMISMATCH, name.empty() ? TargetName() : name);
    case Stored::Bounds:
      return Raise(ERR_VARARRAYBOUNDS, name);
    case Stored::NoMemory:
      break;
  }
  throw std::bad_alloc();
}

bool Machine::CheckElement(Stored stored, const ArrayData* array, int32_t index) {
  return stored == Stored::Bounds ? RaiseBounds(array, index) : Check(stored, "");
}

bool Machine::ClearVariable(Variable& variable) {
  const TypeRef type = TypeOf(variable);
  const OwnedCell empty(type->GetKind(), DefaultCell(*type));
  return AssignTo(variable, *type, empty.cell);
}

/// A value of unknown type may be the variable that it was read from.
void Machine::OwnVariable(Cell& cell) {
  if (VariableAccess::Holders(*cell.v) == 0) return;
  const Cell shared = cell;
  cell = CopyCell(Kind::Any, shared);
  ReleaseCell(Kind::Any, shared);
}

void Machine::Declare(const Code& code, Cell* registers, const Instr& at) {
  const Local& local = code.procedure->Locals().At(at.a);
  Kind kind = local.type->GetKind();
  OwnedCell fresh(kind, DefaultCell(*local.type));
  if (local.arraySize > 0) ResizeCell(fresh.cell, *local.type, local.arraySize);
  if (at.op == Op::DeclO) {
    StoreCell(kind, registers[at.a], fresh.Take());
    return;
  }
  Variable*& object = registers[at.a].v;
  if (object == nullptr) {
    object = MakeOwnedVariable(local.type, local.name, std::move(fresh));
    return;
  }
  AssignTo(*object, *local.type, fresh.cell);
}

void Machine::SweepArray(ArrayData& array) {
  // Deeper down a built-in may hold an element without having said so.
  if (nativeDepth_ <= 1) array.SweepWhenDue();
}

/// An object that is wanted again is not made anew.
void Machine::SweepBeforeHolding(ArrayData* array, int32_t index) {
  const uint32_t at = static_cast<uint32_t>(index) - 1;
  const bool isNew = array != nullptr && array->HasBoxes() && !array->HasBox(at);
  if (isNew && nativeDepth_ <= 1 && at < array->Count()) array->SweepForAnother();
}

bool Machine::HasElement(const ArrayData* array, int32_t index) {
  const bool has = array != nullptr && static_cast<uint32_t>(index) - 1 < array->Count();
  return has || RaiseBounds(array, index);
}

bool Machine::ElementAt(ArrayData* array, int32_t index, Cell& out) {
  if (array != nullptr && array->HasBoxes()) SweepArray(*array);
  return CheckElement(ReadElement(array, index, out), array, index);
}

bool Machine::GlobalElementAt(GlobalSlot& slot, int32_t index, Cell& out) {
  Cell array = ZeroCell();
  return LoadGlobal(slot, array) && ElementAt(array.a, index, out);
}

bool Machine::ElementAsVariable(ArrayData* array, int32_t index, Cell& out) {
  if (array != nullptr && array->HasBoxes()) SweepArray(*array);
  return CheckElement(CopyElement(array, index, out.v), array, index);
}

bool Machine::ElementAs(Kind kind, const ArrayData* array, int32_t index, Cell& out) {
  Cell element = ZeroCell();
  if (!CheckElement(ReadElement(array, index, element), array, index)) return false;
  if (array->StorageKind() == kind) {
    out = CopyCell(kind, element);
    return true;
  }
  const bool isObject = array->StorageKind() == Kind::Any;
  const TypeDesc& from = isObject ? *TypeOf(*element.v) : *array->ElementType();
  const TypeDesc& type = *TypeDesc::Of(kind);
  Cell value = ZeroCell();
  if (!ConvertCell(type, from, isObject ? *CellOf(*element.v) : element, value))
    return RaiseMismatch("", type, from);
  out = value;
  return true;
}

bool Machine::AssignElement(Cell& place, int32_t index, Kind kind, Cell value) {
  if (place.a != nullptr && place.a->StorageKind() == kind)
    return StoreElementCopy(place, index, value);
  if (place.a != nullptr && place.a->HasBoxes()) SweepArray(*place.a);
  const TypeDesc& from = *TypeDesc::Of(kind);
  const Place array{&place, TypeDesc::Of(Kind::Array).Get()};
  const Stored stored = tamber::StoreElement(array, index, from, value);
  if (stored != Stored::Mismatch) return CheckElement(stored, place.a, index);
  Cell element = ZeroCell();
  if (!CheckElement(ReadElement(place.a, index, element), place.a, index)) return false;
  const bool isObject = place.a->StorageKind() == Kind::Any;
  return RaiseMismatch(TargetName(), isObject ? *TypeOf(*element.v) : *place.a->ElementType(),
                       from);
}

/// Stores a value of its own like `value`, which may be a part of the array.
bool Machine::StoreElementCopy(Cell& place, int32_t index, Cell value) {
  if (!HasElement(place.a, index)) return false;
  const Kind kind = place.a->StorageKind();
  OwnedCell copy(kind, CopyCell(kind, value));
  if (!StoreElement(place, index, copy.cell)) return false;
  copy.Take();
  return true;
}

bool Machine::StoreElement(Cell& place, int32_t index, Cell value) {
  uint32_t at = static_cast<uint32_t>(index) - 1;
  if (!HasElement(place.a, index)) return false;
  ArrayData* array = Unshare(place.a, place.a->ElementType());
  if (array->HasBoxes()) SweepArray(*array);
  array->Put(at, value);
  return true;
}

bool Machine::StoreGlobalElement(GlobalSlot& slot, int32_t index, Cell value) {
  Cell array = ZeroCell();
  return GlobalAddress(slot, array) && StoreElement(*static_cast<Cell*>(array.p), index, value);
}

bool Machine::ElementAddress(Cell& place, int32_t index, Cell& out) {
  if (place.a != nullptr && place.a->HasBoxes()) {
    SweepArray(*place.a);
    if (nativeDepth_ <= 1) place.a->SweepBox(static_cast<uint32_t>(index) - 1);
  }
  Place part{&place, TypeDesc::Of(Kind::Array).Get()};
  if (!CheckElement(EnterElement(part, index), place.a, index)) return false;
  out.p = part.cell;
  return true;
}

bool Machine::GlobalElementAddress(GlobalSlot& slot, int32_t index, Cell& out) {
  Cell array = ZeroCell();
  return GlobalAddress(slot, array) && ElementAddress(*static_cast<Cell*>(array.p), index, out);
}

bool Machine::BoxElement(Cell& place, int32_t index, Cell& out) {
  SweepBeforeHolding(place.a, index);
  Whole array = Whole::Register(place);
  if (!CheckElement(array.HoldElement(index), place.a, index)) return false;
  out.v = array.Object()->Duplicate();
  return true;
}

bool Machine::BoxMember(Cell& place, uint32_t member, Cell& out) {
  Whole structure = Whole::Register(place);
  if (!Check(structure.HoldMember(member), "")) return false;
  out.v = structure.Object()->Duplicate();
  return true;
}

void Machine::PutMember(Cell& place, uint32_t member, Cell value) {
  OwnedCell kept(place.st->MemberKind(member), value);
  StructData* data = Unshare(place.st);
  data->Put(member, kept.Take());
}

bool Machine::SelectMember(Cell& variable, uint32_t member, const TypeDesc& type) {
  const Name& name = type.Layout()->Members()[member].name;
  if (KindOf(*variable.v) != Kind::Struct)
    return Raise(ERR_VARNOTSTRUCT, variable.v->OwnName().View());
  Cell& place = *CellOf(*variable.v);
  // A host may have put a structure with other members there.
  const bool same = place.st->Layout().Get() == type.Layout().Get();
  const int32_t at = same ? static_cast<int32_t>(member) : place.st->Layout()->Find(name.View());
  if (at < 0) return Raise(ERR_BADSTRUCTEL, name.View());
  Whole structure(*variable.v);
  if (!Check(structure.HoldMember(static_cast<uint32_t>(at)), name.View())) return false;
  Variable* selected = structure.Object()->Duplicate();
  Variable::Delete(variable.v);
  variable.v = selected;
  return true;
}

bool Machine::SelectElement(Cell& variable, int32_t index) {
  if (KindOf(*variable.v) != Kind::Array)
    return Raise(ERR_VARNOTARRAY, variable.v->OwnName().View());
  Cell& place = *CellOf(*variable.v);
  SweepBeforeHolding(place.a, index);
  Whole array(*variable.v);
  if (!CheckElement(array.HoldElement(index), place.a, index)) return false;
  Variable* selected = array.Object()->Duplicate();
  Variable::Delete(variable.v);
  variable.v = selected;
  return true;
}

bool Machine::ResizeCell(Cell& place, const TypeDesc& type, int64_t delta) {
  return Check(Resize({&place, &type}, delta), "");
}

bool Machine::ResizeVariable(Variable& array, int64_t delta) {
  return Check(Resize(tamber::PlaceOf(array), delta), array.OwnName().View());
}

bool Machine::AppendCell(Cell& place, const AppendSite& site, Cell value) {
  return Check(Append({&place, site.array.Get()}, *site.value, value), "");
}

bool Machine::AppendToVariable(Variable& array, const TypeDesc& type, Cell value) {
  return Check(Append(tamber::PlaceOf(array), type, value), array.OwnName().View());
}

bool Machine::Execute(int32_t operatorIndex, Cell& out) {
  operators_.SetCaseSwitch(IsCaseSensitive());
  bool done;
  {
    const RemainderErrors errors(operators_);
    done = operators_.ExecuteOperator(operatorIndex, stack_) != 0;
  }
  int32_t error = operators_.GetOperatorError();
  if (error == ERR_DIVIDEBYZERO &&
      operatorIndex == TamberOperators::GetOperatorIndex(TamberOperators::OP_REMAIN))
    FaultRemainder();
  if (!done || error != 0) {
    leftZero_ = error == ERR_DIVIDEBYZERO;
    return Raise(error, operators_.GetOperatorErrorText().View());
  }
  out.v = stack_->PopVariable();
  return true;
}

/// What a call has for its value when the function gave none.
Cell Machine::DefaultResult(const CallSite& site) {
  const TypeRef& type = site.function->ReturnType();
  if (site.resultKind == Kind::Any) return Cell{.v = MakeVariable(type, Name())};
  // Registers hold an encrypted string as its plain text.
  return site.resultKind == Kind::String ? ZeroCell() : DefaultCell(*type);
}

bool Machine::TakeResult(const CallSite& site, uint32_t height, Cell& out) {
  if (stack_->GetSize() <= height) {
    out = DefaultResult(site);
    return true;
  }
  if (site.resultKind == Kind::Any) {
    out.v = stack_->PopVariable();
  } else {
    const StackEntry& top = stack_->Peek(0);
    if (top.kind == site.resultKind) {
      out = top.cell;
      const TypeDesc* held = top.type;
      stack_->Forget();
      if (held != nullptr) held->Release();
    } else {
      StackEntry entry = stack_->Take();
      TypeRef from = entry.kind == Kind::Any ? TypeOf(*entry.cell.v)
                     : entry.type != nullptr ? TypeRef(entry.type)
                                             : TypeDesc::Of(entry.kind);
      const Cell& source = entry.kind == Kind::Any ? *CellOf(*entry.cell.v) : entry.cell;
      const TypeDesc& to = site.resultKind == Kind::String ? *TypeDesc::Of(Kind::String)
                                                           : *site.function->ReturnType();
      bool fits = ConvertCell(to, *from, source, out);
      Stack::Release(entry);
      if (!fits) out = DefaultCell(to);
    }
  }
  stack_->CutTo(height);
  return true;
}

bool Machine::CallChosen(const CallSite& site, Cell& out) {
  std::vector<TypeRef> held;
  std::vector<const TypeDesc*> types;
  for (uint32_t depth = site.arguments; depth-- > 0;) {
    const StackEntry& entry = stack_->Peek(depth);
    held.push_back(entry.kind == Kind::Any ? TypeOf(*entry.cell.v)
                   : entry.type != nullptr ? TypeRef(entry.type)
                                           : TypeDesc::Of(entry.kind));
    types.push_back(held.back().Get());
  }
  int32_t error = 0;
  const auto function = host_.Functions().ChooseOverload(*site.function, types, error);
  if (!function) {
    stack_->CutTo(stack_->GetSize() - site.arguments);
    return Raise(error, site.function->GetName().View());
  }
  for (uint32_t i = 0; i < site.arguments; ++i) {
    const bool wantsText = function->ParameterTypes()[i]->TypeId() == Variable::String;
    if (wantsText && types[i]->GetKind() == Kind::Char) stack_->MakeText(site.arguments - 1 - i);
  }
  return CallFunction({function, site.arguments, site.resultKind}, out);
}

/// While such a built-in runs, its caller's locals can be had by name.
bool Machine::CallLooking(const CallSite& site, Cell& out) {
  Cell result = ZeroCell();
  bool done = false;
  std::exception_ptr thrown;
  const uint32_t outer = std::exchange(inBuiltIn_, frameCount_);
  try {
    done = CallFunction(site, result);
  } catch (...) {
    thrown = std::current_exception();
  }
  inBuiltIn_ = outer;
  if (!lent_.empty()) TakeBackLocals();
  if (thrown) std::rethrow_exception(thrown);
  // The result may go into one of them.
  if (done && !run_.stopFlag && !unwinding_) out = result;
  return done;
}

bool Machine::CallFunction(const CallSite& site, Cell& out) {
  const TamberFunction& function = *site.function;
  if (stack_->GetSize() < site.arguments)
    return Raise(ERR_EXPRFUNCPARCOUNT, function.GetName().View());
  if (site.choosesWhenRun) [[unlikely]]
    return CallChosen(site, out);
  uint32_t height = stack_->GetSize() - site.arguments;
  Stack* stack = stack_;
  FunctionCallInfo call{&context_, stack, 0, KelString(), function.Target()};
  if (!function.IsImplemented()) {
    stack->CutTo(height);
  } else {
    try {
      if (function.Traits().interruptible) {
        CallImplementation(function, call);
      } else {
        const kel::Interruptible host(false);
        CallImplementation(function, call);
      }
    } catch (const kel::Interrupted&) {
      Interrupt();
    } catch (...) {
      call.errorCode = ThrownError(function, call.errorText);
    }
  }
  if (call.errorCode != 0) {
    run_.SetError(call.errorCode, call.errorText);
    failedCall_ = frames_[frameCount_ - 1].pc;
  }
  if (run_.IsStopRequested()) Interrupt();
  if (unwinding_ || run_.stopFlag || run_.errorCode >= kFirstFatalError) {
    // Nothing takes the result any more.
    if (stack->GetSize() > height) stack->CutTo(height);
    return run_.errorCode < kFirstFatalError;
  }
  return TakeResult(site, height, out);
}

/// A result as a variable, for those who take it as one.
Cell Machine::MakeVariableOf(Kind kind, Cell result) {
  OwnedCell value(kind, result);
  Cell made = ZeroCell();
  made.v = MakeVariable(TypeDesc::Of(kind), Name(), value.cell);
  value.Take();
  return made;
}

/// A call with what few need: of a function that must not be interrupted, or that may look for its
/// caller's locals by name.
Machine::Called Machine::CallDirect(const CallSite& site, const Cell* arguments, bool looks,
                                    Cell& out) {
  const TamberFunction& function = *site.function;
  Cell result = ZeroCell();
  const uint32_t outer = inBuiltIn_;
  if (looks) inBuiltIn_ = frameCount_;
  try {
    if (function.Traits().interruptible) {
      result = RunDirect(site, arguments);
    } else {
      const kel::Interruptible host(false);
      result = RunDirect(site, arguments);
    }
  } catch (const kel::Interrupted&) {
    Interrupt();
    callError_.hasNoResult = true;
  } catch (...) {
    NoteThrown(site);
  }
  inBuiltIn_ = outer;
  if (!lent_.empty() && looks) TakeBackLocals();
  // The result may go into one of them.
  if (!IsPlainReturn<false>()) [[unlikely]]
    return FinishDirect(site, result, out);
  out = result;
  return Called::Returned;
}

/// A call without the stack has thrown, and what was thrown is being handled: that becomes its
/// error.
void Machine::NoteThrown(const CallSite& site) {
  callError_.hasNoResult = true;
  callError_.errorText.Clear();
  callError_.errorCode = ThrownError(*site.function, callError_.errorText);
}

/// What few calls need: an error, no result, or a run that ends.
Machine::Called Machine::FinishDirect(const CallSite& site, Cell result, Cell& out) {
  const bool hasResult = !std::exchange(callError_.hasNoResult, false);
  if (callError_.errorCode != 0) {
    run_.SetError(std::exchange(callError_.errorCode, 0), callError_.errorText);
    failedCall_ = frames_[frameCount_ - 1].pc;
  }
  if (run_.IsStopRequested()) Interrupt();
  if (unwinding_ || run_.stopFlag || run_.errorCode >= kFirstFatalError) {
    // Nothing takes the result any more.
    if (hasResult) ReleaseCell(site.resultKind, result);
    return run_.errorCode < kFirstFatalError ? Called::Stopped : Called::Failed;
  }
  out = hasResult ? result : DefaultResult(site);
  return Called::Returned;
}

bool Machine::IsCaseSensitive() {
  const Code* code = &frames_[frameCount_ - 1].code->Tables();
  if (code->procedure == nullptr) {
    Frame* scope = ScopeFrame();
    code = scope != nullptr ? &scope->code->Tables() : nullptr;
  }
  if ((code != nullptr && code->ownsCaseSwitch) || !extraLocals_.empty())
    return host_.SwitchValue("StrCase") != 0;
  if (!caseSwitch_.IsFound(run_.epoch)) {
    int32_t error = run_.errorCode;
    if (!ResolveGlobal(caseSwitch_)) {
      // The host has removed it; that is no error of the script's.
      run_.errorCode = error;
      return false;
    }
  }
  return (caseSwitch_.cell != nullptr ? caseSwitch_.cell->i
                                      : caseSwitch_.variable->GetIntegerValue()) != 0;
}

/// The error of a length that is no integer of scripts; the statement goes on with the largest.
void Machine::LeaveTooLong(uint32_t length) {
  run_.SetError(ERR_VALUEOVERFLOW, KelString(std::to_string(length)));
  failedCall_ = frames_[frameCount_ - 1].pc;
}

bool Machine::AppendAsText(StrBuf*& slot, Kind kind, Cell value) {
  if (kind == Kind::Any) {
    const Variable& variable = *value.v;
    kind = KindOf(variable);
    if (!HasText(kind)) return Raise(ERR_EXPRPARMMATCH, "+");
    value = *CellOf(*value.v);
  }
  std::string text;
  AppendCellText(text, kind, value);
  AppendText(slot, text);
  return true;
}

bool Machine::SameWholeText(std::string_view left, std::string_view right) {
  if (std::min(left.size(), right.size()) > kel::kBytesPerStep) [[unlikely]]
    return CompareLargeTexts(left, right, IsCaseSensitive()) == 0;
  if (left == right) return true;
  return CompareText(left, right, false) == 0 &&
         (!IsCaseSensitive() || CompareText(left, right, true) == 0);
}

int32_t Machine::CompareTexts(const StrBuf* a, const StrBuf* b) {
  const std::string_view left = TextOf(a);
  const std::string_view right = TextOf(b);
  if (std::min(left.size(), right.size()) > kel::kBytesPerStep) [[unlikely]]
    return CompareLargeTexts(left, right, IsCaseSensitive());
  return CompareText(left, right, IsCaseSensitive());
}

}  // namespace tamber
