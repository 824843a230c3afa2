#include "engine/stack.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "values/cellops.h"
#include "values/strbuf.h"

using tamber::Cell;
using tamber::Kind;
using tamber::StackEntry;
using tamber::TypeDesc;
using tamber::TypeRef;

namespace {

/// A string entry's text; the empty text for every other kind. Good until the entry changes.
std::string_view TextOfEntry(const StackEntry& entry) {
  if (entry.kind == Kind::String) return tamber::TextOf(entry.cell.s);
  if (entry.kind != Kind::Any) return {};
  const char* text =
      entry.cell.v->GetStringValue();  // before the length: an estring deciphers here
  return {text, entry.cell.v->GetLength()};
}

StackEntry Copied(const StackEntry& entry) {
  StackEntry copy = entry;
  if (entry.kind == Kind::Any) {
    entry.cell.v->Duplicate();
    return copy;
  }
  copy.cell = tamber::CopyCell(entry.kind, entry.cell);
  if (entry.type != nullptr) entry.type->Retain();
  return copy;
}

/// The type of an entry that is no variable.
TypeRef TypeOfEntry(const StackEntry& entry) {
  return entry.type != nullptr ? TypeRef(entry.type) : TypeDesc::Of(entry.kind);
}

/// Turns an entry into one that holds a variable; null, and the entry as it was, without memory.
Variable* Materialise(StackEntry& entry) {
  if (entry.kind == Kind::Any) return entry.cell.v;
  try {
    Variable* variable = tamber::MakeVariable(TypeOfEntry(entry), {}, entry.cell);
    if (entry.type != nullptr) entry.type->Release();
    entry = {Kind::Any, tamber::ZeroCell(), nullptr};
    entry.cell.v = variable;
    return variable;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

/// Takes the top entry off for one typed pop and releases it afterwards.
class Popped {
 public:
  explicit Popped(Stack& stack) {
    if (stack.GetSize() > 0) entry_ = stack.Take();
  }
  Popped(const Popped&) = delete;
  Popped& operator=(const Popped&) = delete;
  ~Popped() { Stack::Release(entry_); }

  /// Reads the entry with the getter of its variable, or with the same conversion of its cell.
  template <class Value>
  Value Read(Value (Variable::*getter)() const, Value (*convert)(Kind, Cell)) const {
    return entry_.kind == Kind::Any ? (entry_.cell.v->*getter)()
                                    : convert(entry_.kind, entry_.cell);
  }
  StackEntry& Entry() { return entry_; }

 private:
  StackEntry entry_{Kind::None, tamber::ZeroCell(), nullptr};
};

char CellToByte(Kind kind, Cell cell) { return static_cast<char>(tamber::CellToChar(kind, cell)); }

void* CellToHandle(Kind kind, Cell cell) {
  if (kind == Kind::Handle) return cell.p;
  // An integer carries a handle's number: sign-extended to the width of a pointer.
  if (kind != Kind::Int) return nullptr;
  return reinterpret_cast<void*>(
      static_cast<intptr_t>(cell.i));  // NOLINT: a number, never followed
}

}  // namespace

Stack::Stack(const Stack& other) {
  Reserve(other.size_);
  for (; size_ < other.size_; ++size_) entries_[size_] = Copied(other.entries_[size_]);
}

Stack& Stack::operator=(const Stack& other) {
  Stack copy(other);
  entries_.swap(copy.entries_);
  std::swap(size_, copy.size_);
  std::swap(capacity_, copy.capacity_);
  return *this;
}

Stack::~Stack() { PopAll(); }

Variable* Stack::GetVariable(uint32_t index) {
  return index < size_ ? Materialise(entries_[index]) : nullptr;
}

Variable::enum_TypeId Stack::GetTypeId(uint32_t depth) const {
  if (depth >= size_) return Variable::None;
  const StackEntry& entry = Peek(depth);
  if (entry.kind == Kind::Any) return entry.cell.v->GetTypeId();
  const TypeDesc& type = entry.type != nullptr ? *entry.type : *TypeDesc::Of(entry.kind);
  return static_cast<Variable::enum_TypeId>(type.TypeId());
}

uint32_t Stack::GetEntryLength(uint32_t depth) const {
  if (depth >= size_) return 0;
  const StackEntry& entry = Peek(depth);
  if (entry.kind == Kind::Any) return entry.cell.v->GetLength();
  return static_cast<uint32_t>(TextOfEntry(entry).size());
}

int32_t Stack::PushVariable(Variable* variable) {
  if (variable == nullptr) return 0;
  Cell cell = tamber::ZeroCell();
  cell.v = variable;
  return Append(Kind::Any, cell, nullptr) ? 1 : 0;
}

Variable* Stack::PopVariable() {
  if (size_ == 0) return nullptr;
  StackEntry entry = Take();
  Variable* variable = Materialise(entry);
  if (variable == nullptr) Release(entry);
  return variable;
}

void Stack::Pop() {
  if (size_ == 0) return;
  StackEntry entry = Take();
  Release(entry);
}

void Stack::PopAll() { CutTo(0); }

void Stack::PushBoolean(int32_t value) {
  Append(Kind::Bool, tamber::IntCell(value != 0 ? 1 : 0), nullptr);
}

void Stack::PushChar(char value) { Append(Kind::Char, tamber::ToCell(value), nullptr); }

void Stack::PushInteger(int32_t value) { Append(Kind::Int, tamber::IntCell(value), nullptr); }

void Stack::PushFloat(float value) { Append(Kind::Float, tamber::ToCell(value), nullptr); }

void Stack::PushDouble(double value) { Append(Kind::Double, tamber::ToCell(value), nullptr); }

void Stack::PushString(const char* text, uint32_t len) {
  if (text == nullptr) return PushText({});
  PushText({text, len != 0 ? len : std::strlen(text)});
}

void Stack::PushString(const KelString& text) { PushText(text); }

void Stack::PushText(std::string_view text) {
  Cell cell = tamber::ZeroCell();
  try {
    if (!text.empty()) cell.s = tamber::StrBuf::New(text);
  } catch (const std::bad_alloc&) {  // the empty text stands in
  }
  Append(Kind::String, cell, nullptr);
}

void Stack::PushHandle(const KelString& handleTypeName, void* value) {
  Cell cell = tamber::ZeroCell();
  cell.p = value;
  PushTyped(*TypeDesc::HandleOf(tamber::Name(handleTypeName)), cell);
}

int32_t Stack::PopBoolean() {
  return Popped(*this).Read(&Variable::GetBoolValue, &tamber::CellToBool);
}
char Stack::PopChar() { return Popped(*this).Read(&Variable::GetCharValue, &CellToByte); }
int32_t Stack::PopInteger() {
  return Popped(*this).Read(&Variable::GetIntegerValue, &tamber::CellToInt);
}
float Stack::PopFloat() {
  return Popped(*this).Read(&Variable::GetFloatValue, &tamber::CellToFloat);
}
double Stack::PopDouble() {
  return Popped(*this).Read(&Variable::GetDoubleValue, &tamber::CellToDouble);
}
void* Stack::PopHandle() { return Popped(*this).Read(&Variable::GetHandleValue, &CellToHandle); }

char* Stack::PopString() {
  Popped popped(*this);
  const std::string_view text = TextOfEntry(popped.Entry());
  auto* buffer = static_cast<char*>(std::malloc(text.size() + 1));
  if (buffer == nullptr) return nullptr;
  if (!text.empty()) std::memcpy(buffer, text.data(), text.size());
  buffer[text.size()] = '\0';
  return buffer;
}

void Stack::PopKelString(KelString& text) {
  Popped popped(*this);
  text = KelString(TextOfEntry(popped.Entry()));
}

void Stack::PushTyped(const TypeDesc& type, Cell cell) {
  type.Retain();
  Append(type.GetKind(), cell, &type);
}

void Stack::MakeText(uint32_t depth) {
  StackEntry& entry = entries_[size_ - 1 - depth];
  const char value =
      entry.kind == Kind::Any ? entry.cell.v->GetCharValue() : static_cast<char>(entry.cell.i);
  tamber::StrBuf* const text = tamber::StrBuf::New({&value, 1});
  Release(entry);
  entry = {Kind::String, {.s = text}, nullptr};
}

StackEntry Stack::Take() {
  const StackEntry& top = entries_[--size_];
  return {top.kind, top.cell, top.type};
}

void Stack::Release(StackEntry& entry) {
  // A variable on the stack is one holder, whoever else holds it.
  if (entry.kind == Kind::Any) {
    Variable::Delete(entry.cell.v);
  } else {
    tamber::ReleaseCell(entry.kind, entry.cell);
    if (entry.type != nullptr) entry.type->Release();
  }
  entry = {Kind::None, tamber::ZeroCell(), nullptr};
}

bool Stack::Append(Kind kind, Cell cell, const TypeDesc* type) {
  try {
    Place(kind, cell, type);
    return true;
  } catch (const std::bad_alloc&) {
    StackEntry entry{kind, cell, type};
    Release(entry);
    return false;
  }
}

void Stack::Reserve(uint64_t capacity) {
  if (capacity > std::numeric_limits<uint32_t>::max()) throw std::bad_alloc();
  auto larger = std::make_unique<StackEntry[]>(capacity);
  std::copy_n(entries_.get(), size_, larger.get());
  entries_ = std::move(larger);
  capacity_ = static_cast<uint32_t>(capacity);
}
