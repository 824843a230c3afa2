#pragma once

#include <memory>
#include <vector>

#include "kel/kelstring.h"
#include "values/typedesc.h"
#include "values/varpool.h"

namespace tamber {
class CodeBuilder;
struct Operand;
}  // namespace tamber

/// Kinds of expression nodes.
enum enum_ExpressionKind : uint32_t {
  EXPRESSION_CONSTANT = 1,
  EXPRESSION_VARIABLE = 2,
  EXPRESSION_OPERATOR = 3,
  EXPRESSION_SUB = 4,
  EXPRESSION_FUNCTION = 5,
  EXPRESSION_PROCEDURE = 6,
};

/// A node of a compiled expression. A node owns its children and is complete, and from then on
/// unchanging, when its compiler hands the tree over. It holds no context: that comes with the
/// running frame.
class ExpressionBase {
 public:
  explicit ExpressionBase(enum_ExpressionKind kind) : kind_(kind) {}
  ExpressionBase(const ExpressionBase&) = delete;
  ExpressionBase& operator=(const ExpressionBase&) = delete;
  static void* operator new(size_t size) { return tamber::PoolAllocate(size); }
  static void operator delete(void* memory, size_t size) { tamber::PoolFree(memory, size); }
  virtual ~ExpressionBase();

  enum_ExpressionKind GetKind() const { return kind_; }
  ExpressionBase* GetParent() const { return parent_; }
  uint32_t GetChildCount() const { return childCount_; }
  ExpressionBase* GetChild(uint32_t index) const {
    return index < kInline ? first_[index].get() : more_[index - kInline].get();
  }
  void AddChild(std::unique_ptr<ExpressionBase> child);
  /// Puts a node in a child's place and hands the child back.
  std::unique_ptr<ExpressionBase> ReplaceChild(ExpressionBase* child,
                                               std::unique_ptr<ExpressionBase> node);

  /// The static type of the value, as operators and overloads are chosen by; null before the
  /// compiler has worked it out.
  const tamber::TypeRef& Type() const { return type_; }
  void SetType(const tamber::TypeRef& type) { type_ = type; }

  /// Whether a double was asked for, so that the literals below have been looked at.
  bool IsDoubleWanted() const { return doubleWanted_; }
  void SetDoubleWanted() { doubleWanted_ = true; }

  /// Whether evaluating it may run script code, or host code that changes script variables.
  bool IsImpure() const { return impure_; }
  /// Whether it calls a built-in, which may leave a run-time error and still give a value.
  bool CallsFunction() const { return callsFunction_; }
  /// Whether it calls a built-in that may look for the procedure's locals by name.
  bool LooksUpLocals() const { return looksUpLocals_; }
  /// Takes over what is true of the children; called once they are complete.
  void CollectFacts(bool impure, bool callsFunction, bool looksUpLocals);

  /// Where its token begins in the logical line, from 0; that of a call is the name.
  uint32_t SourceOffset() const { return sourceOffset_; }
  void SetSourceOffset(uint32_t offset) { sourceOffset_ = offset; }

  /// Emits code that computes the value; see tamber::Operand for where it is then.
  tamber::Operand Lower(tamber::CodeBuilder& builder) const;
  /// Appends the text form: operators and calls with their operands in parentheses.
  virtual void Dump(KelString& out) const = 0;

 protected:
  void DumpChildren(KelString& out) const;

 private:
  bool LeaveChildren();

  virtual tamber::Operand LowerNode(tamber::CodeBuilder& builder) const = 0;
  std::unique_ptr<ExpressionBase>& ChildSlot(uint32_t index) {
    return index < kInline ? first_[index] : more_[index - kInline];
  }

  enum_ExpressionKind kind_;
  uint32_t sourceOffset_ = 0;
  ExpressionBase* parent_ = nullptr;
  // Few nodes but calls have more than two children, so two need no list.
  static constexpr uint32_t kInline = 2;
  std::unique_ptr<ExpressionBase> first_[kInline];
  std::vector<std::unique_ptr<ExpressionBase>> more_;
  uint32_t childCount_ = 0;
  tamber::TypeRef type_;
  bool impure_ = false;
  bool callsFunction_ = false;
  bool looksUpLocals_ = false;
  bool doubleWanted_ = false;
};
