#pragma once

#include "expr/exprbase.h"
#include "machine/instruction.h"
#include "machine/locals.h"

/// A variable, with the indexes and members that follow its name. The children are the index
/// expressions, in order.
class ExpressionVariable final : public ExpressionBase {
 public:
  /// One step from an aggregate to its part.
  struct Selector {
    bool isIndex;
    uint32_t sourceOffset = 0;  ///< of the "[" or the member's name
    int32_t member = -1;        ///< 0-based position in `layout`
    tamber::Name memberName;
    tamber::TypeRef from;  ///< type that the step is applied to; Kind::Any: checked when run
    tamber::TypeRef to;
  };

  explicit ExpressionVariable(tamber::VarUse variable);

  const tamber::VarUse& Variable() const { return variable_; }
  bool IsSimple() const { return selectors_.empty(); }
  const std::vector<Selector>& Selectors() const { return selectors_; }
  void AddMember(Selector selector);
  void AddIndex(Selector selector, std::unique_ptr<ExpressionBase> index);

  void Dump(KelString& out) const override;

  // Lowering in steps, for whoever stores into the variable.
  /// Evaluates the index expressions, in order, into integer registers.
  std::vector<tamber::Operand> LowerIndexes(tamber::CodeBuilder& builder) const;
  /// The variable itself (an element or member becomes an object), with a holder.
  tamber::Operand LowerReference(tamber::CodeBuilder& builder) const;
  tamber::Operand LowerReference(tamber::CodeBuilder& builder,
                                 const std::vector<tamber::Operand>& indexes) const;
  /// Fails as a store would when an index is out of bounds.
  void LowerCheck(tamber::CodeBuilder& builder, const std::vector<tamber::Operand>& indexes) const;
  /// Assigns the value; it is given up.
  void LowerStore(tamber::CodeBuilder& builder, const std::vector<tamber::Operand>& indexes,
                  const tamber::Operand& value) const;
  /// A register with the address of the cell of the array or string that this is.
  uint16_t LowerCellAddress(tamber::CodeBuilder& builder,
                            const std::vector<tamber::Operand>& indexes) const;
  /// Whether it is a local of the procedure itself, so that its type is certain.
  bool IsOwnLocal(const tamber::CodeBuilder& builder) const;
  /// Whether a step can only be taken when it runs, variable by variable.
  bool IsDynamic(const tamber::CodeBuilder& builder) const;

 private:
  tamber::Operand LowerNode(tamber::CodeBuilder& builder) const override;
  using Indexes = std::vector<tamber::Operand>;
  uint16_t LowerAddress(tamber::CodeBuilder& builder, const Indexes& indexes, size_t count) const;
  bool BeginsAtGlobalElement(const tamber::CodeBuilder& builder) const;
  tamber::Operand Read(tamber::CodeBuilder& builder, const Indexes& indexes, size_t count) const;
  tamber::Operand ReadDynamic(tamber::CodeBuilder& builder, tamber::Operand from,
                              const Indexes& indexes, size_t first) const;
  size_t IndexesBefore(size_t selector) const;

  tamber::VarUse variable_;
  std::vector<Selector> selectors_;
};

namespace tamber {

/// Whether reading the expression is no more than reading a scalar that certainly is there.
bool IsPlainRead(const CodeBuilder& builder, const ExpressionBase& expression);

/// The instruction that reads an element of this kind, which is not Any.
Op ElementOp(Kind kind);
/// An element or member in a register as the value that it is: an encrypted string is read as a
/// string.
Operand Selected(CodeBuilder& builder, uint16_t reg, const TypeRef& type);

}  // namespace tamber
