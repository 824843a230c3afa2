#pragma once

#include <cstdint>

#include "kel/kelstring.h"
#include "values/varpool.h"

/// Kind numbers of statements; those without a number of their own share 0.
enum enum_StatementKind : uint32_t {
  STATEMENT_PLAIN = 0,
  STATEMENT_GOTO = 6,
  STATEMENT_CALLSCRIPT = 9,
  STATEMENT_SHRINK = 11,
  STATEMENT_GROW = 12,
  STATEMENT_APPEND = 13,
  // placeholders that a block or the end of the procedure turns into jumps
  STATEMENT_RETURN = 14,
  STATEMENT_BREAK = 15,
  STATEMENT_CONTINUE = 16,
  STATEMENT_ENDBRANCH = 17,
};

/// One compiled statement of a procedure: its line, its kind and what it does.
///
/// Statements are the program's public shape: they are numbered, dumped and counted, and the error
/// policy is applied after each. They do not change once their procedure is complete. What runs is
/// the code that the list is lowered to when its procedure first runs (statements/lower.h).
class StatementBase {
 public:
  /// Which class it is; Other: this one.
  enum class Form : uint8_t {
    Other,
    Expression,
    Goto,
    Declare,
    Exit,
    PopVar,
    PushVar,
    PopParam,
    ArrayOp,
    CallScript,
    PopAssign,
    PopStack,
  };

  explicit StatementBase(uint32_t line, uint32_t kind = STATEMENT_PLAIN, Form form = Form::Other)
      : line_(line), kind_(kind), form_(form) {}
  StatementBase(const StatementBase&) = delete;
  StatementBase& operator=(const StatementBase&) = delete;
  static void* operator new(size_t size) { return tamber::PoolAllocate(size); }
  static void operator delete(void* memory, size_t size) { tamber::PoolFree(memory, size); }
  virtual ~StatementBase() = default;

  /// Appends a one-line description and "\r\n"; `index` is the statement's own number.
  virtual void Dump(KelString& out, uint32_t index) const;

  /// First physical line of the logical line that it was compiled from, 1-based.
  uint32_t GetLine() const { return line_; }
  uint32_t GetKind() const { return kind_; }
  Form GetForm() const { return form_; }
  /// The statement as one of a class that has a Form of its own; null when it is another.
  template <class T>
  const T* As() const {
    return form_ == T::kForm ? static_cast<const T*>(this) : nullptr;
  }
  /// Where it begins in the logical line, from 0: elsewhere than there in a part of a `for`.
  uint32_t SourceOffset() const { return sourceOffset_; }
  void SetSourceOffset(uint32_t offset) { sourceOffset_ = offset; }

 private:
  uint32_t line_;
  uint32_t kind_;
  uint32_t sourceOffset_ = 0;
  Form form_;
};
