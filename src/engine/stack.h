#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "kel/export.h"
#include "kel/kelstring.h"
#include "values/strbuf.h"
#include "values/typedesc.h"
#include "values/variable.h"

namespace tamber {

class Machine;

/// One entry of the evaluation stack: a value with its kind, or a shared variable.
/// A scalar or a string gets an object of its own only when somebody asks for one.
struct StackEntry {
  Kind kind;             ///< Any: cell.v is a variable, one holder
  Cell cell;             ///< owned
  const TypeDesc* type;  ///< of Handle, Struct and Array cells, one reference; else null
};

}  // namespace tamber

/// The operand stack on which calls of built-ins pass their arguments and results.
///
/// Entry 0 is the bottom. Depth-relative queries count from the top: position 0 is the top entry.
/// The stack holds one holder of every variable on it.
class TAMBER_API Stack {
 public:
  Stack() = default;
  Stack(const Stack& other);
  Stack& operator=(const Stack& other);
  virtual ~Stack();
  void Swap(Stack& other) noexcept {
    entries_.swap(other.entries_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }

  uint32_t GetSize() const { return size_; }
  /// The entry at `index` from the bottom, borrowed; null out of range.
  Variable* GetVariable(uint32_t index);
  /// Type of the entry `depth` below the top; None out of range.
  Variable::enum_TypeId GetTypeId(uint32_t depth) const;
  /// Length in bytes of the string `depth` below the top; 0 for other types and out of range.
  uint32_t GetEntryLength(uint32_t depth) const;

  /// Takes ownership of one holder of the variable; returns 1 (null: 0, nothing pushed).
  int32_t PushVariable(Variable* variable);
  /// Hands the top entry's holder to the caller; null on an empty stack.
  Variable* PopVariable();
  void Pop();
  void PopAll();

  void PushBoolean(int32_t value);
  void PushChar(char value);
  void PushInteger(int32_t value);
  void PushFloat(float value);
  void PushDouble(double value);
  /// `len` bytes; 0 takes the string up to its NUL.
  void PushString(const char* text, uint32_t len);
  void PushString(const KelString& text);
  void PushHandle(const KelString& handleTypeName, void* value);

  // The typed pops read the entry through the getter of the wanted type; on an empty stack they
  // return 0 or "" and change nothing.
  int32_t PopBoolean();
  char PopChar();
  int32_t PopInteger();
  float PopFloat();
  double PopDouble();
  void* PopHandle();
  /// The bytes of a string and a closing NUL, in a buffer that the caller releases with free(). An
  /// entry that is no string gives "". Null only when there is no memory.
  char* PopString();
  void PopKelString(KelString& text);

  // What running code uses: values with their kinds, no objects in between.
  /// Takes ownership of the cell (kind Bool to Double, or String).
  void PushCell(tamber::Kind kind, tamber::Cell cell) { Place(kind, cell, nullptr); }
  /// Takes ownership of the cell of a handle, structure or array of this type.
  void PushTyped(const tamber::TypeDesc& type, tamber::Cell cell);
  /// The entry `depth` below the top; only while GetSize() > depth.
  const tamber::StackEntry& Peek(uint32_t depth) const { return entries_[size_ - 1 - depth]; }
  /// Drops the top entry without a release: the caller owns its cell and type from now on.
  void Forget() { --size_; }
  /// Takes the top entry off together with what it owns; only on a stack that is not empty. A
  /// variable of kind Any that nobody else holds stays a variable.
  tamber::StackEntry Take();
  /// Releases what an entry owns.
  static void Release(tamber::StackEntry& entry);
  /// Removes entries from the top until `size` are left.
  void CutTo(uint32_t size) {
    while (size_ > size) {
      const tamber::StackEntry& top = entries_[size_ - 1];
      if (top.kind == tamber::Kind::String) {
        tamber::StrBuf* text = top.cell.s;
        --size_;
        if (text != nullptr) tamber::Release(text);
      } else if (top.kind <= tamber::Kind::Double) {
        --size_;
      } else {
        Pop();
      }
    }
  }

 private:
  friend class tamber::Machine;
  /// Makes a string of one character of the character `depth` below the top: typed pops would read
  /// it as "".
  TAMBER_LOCAL void MakeText(uint32_t depth);
  TAMBER_LOCAL void PushText(std::string_view text);
  /// False, and the entry released, without memory.
  TAMBER_LOCAL bool Append(tamber::Kind kind, tamber::Cell cell, const tamber::TypeDesc* type);
  /// Written field by field: an entry that is put together elsewhere and copied as a whole makes
  /// the processor wait for its parts, which costs more than all the rest of a call.
  void Place(tamber::Kind kind, tamber::Cell cell, const tamber::TypeDesc* type) {
    MakeRoom();
    tamber::StackEntry& entry = entries_[size_++];
    entry.kind = kind;
    entry.cell = cell;
    entry.type = type;
  }
  /// Throws std::bad_alloc.
  void Reserve(uint64_t capacity);
  /// For one more. Throws std::bad_alloc.
  void MakeRoom() {
    if (size_ == capacity_) [[unlikely]]
      Reserve(uint64_t{capacity_} * 2 + 4);
  }

  std::unique_ptr<tamber::StackEntry[]> entries_;
  uint32_t size_ = 0;
  uint32_t capacity_ = 0;
};
