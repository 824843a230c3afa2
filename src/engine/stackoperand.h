#pragma once

#include <string>
#include <string_view>

#include "engine/stack.h"
#include "values/cellops.h"
#include "values/strbuf.h"

namespace tamber {

/// The top entry of a stack, taken off for the time of one operation. A variable is looked through:
/// kind and value are those of what it holds.
class StackOperand {
 public:
  /// The stack is not empty.
  explicit StackOperand(Stack& stack)
      : entry_(stack.Take()), kind_(entry_.kind), cell_(entry_.cell) {
    if (kind_ != Kind::Any) return;
    Variable& variable = *entry_.cell.v;
    kind_ = KindOf(variable);
    if (kind_ == Kind::EString) {
      // The plain text of an estring lives only until its next getter, and the other operand may be
      // the same variable.
      const char* text = variable.GetStringValue();
      plain_.assign(text, variable.GetLength());
    } else {
      cell_ = *CellOf(variable);
    }
  }
  StackOperand(const StackOperand&) = delete;
  StackOperand& operator=(const StackOperand&) = delete;
  ~StackOperand() { Stack::Release(entry_); }

  Kind GetKind() const { return kind_; }
  bool IsText() const { return kind_ == Kind::String || kind_ == Kind::EString; }

  // Numbers convert as the variables' getters do; no number gives 0.
  int32_t AsInt() const { return CellToInt(kind_, cell_); }
  int32_t AsBool() const { return CellToBool(kind_, cell_); }
  float AsFloat() const { return CellToFloat(kind_, cell_); }
  double AsDouble() const { return CellToDouble(kind_, cell_); }
  /// The bytes of a text operand.
  std::string_view Text() const { return kind_ == Kind::EString ? plain_ : TextOf(cell_.s); }

  /// Appends the text form; only texts, numbers and handles have one.
  void AppendTo(std::string& out) const {
    if (IsText()) {
      out.append(Text());
    } else {
      AppendCellText(out, kind_, cell_);
    }
  }

  /// The text form as a counted text with a reference for the caller, null for the empty one; that
  /// of the entry itself when it holds a plain string. The operand is empty afterwards.
  StrBuf* TakeText() {
    if (entry_.kind == Kind::String) {
      StrBuf* text = entry_.cell.s;
      entry_.cell.s = cell_.s = nullptr;
      return text;
    }
    if (kind_ == Kind::String) return CopyCell(kind_, cell_).s;
    std::string text;
    AppendTo(text);
    return text.empty() ? nullptr : StrBuf::New(text);
  }

 private:
  StackEntry entry_;
  Kind kind_;
  Cell cell_;
  std::string plain_;
};

}  // namespace tamber
