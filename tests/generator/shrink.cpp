#include "generator/generator.h"

namespace generator {

namespace {

constexpr int kMostAttempts = 4000;

/// Counts down in `number` to a part of the expression that an operand of the same type, or a
/// plain value, can stand for; null when there are not so many.
ExprPtr Simpler(const ExprPtr& expr, size_t& number) {
  for (const ExprPtr& arg : expr->args)
    if (arg->type == expr->type && number-- == 0) return arg;
  const bool plain = expr->form == Expr::Form::Literal || expr->form == Expr::Form::Name;
  if (!plain && expr->type == Plain(Kind::Int) && number-- == 0)
    return MakeLiteral(Scalar::Whole(Kind::Int, 1));
  for (size_t i = 0; i < expr->args.size(); ++i) {
    const ExprPtr simpler = Simpler(expr->args[i], number);
    if (!simpler) continue;
    Expr copy = *expr;
    copy.args[i] = simpler;
    return std::make_shared<const Expr>(std::move(copy));
  }
  return nullptr;
}

/// Makes the change of this number, counted down, in the statements: one of them is left out, its
/// body stands in its place, or an expression becomes simpler. False when there are not so many.
bool Change(std::vector<Statement>& block, size_t& number) {
  for (size_t i = 0; i < block.size(); ++i) {
    const auto at = block.begin() + static_cast<std::ptrdiff_t>(i);
    if (number-- == 0) return block.erase(at), true;
    for (const auto member : {&Statement::body, &Statement::other}) {
      std::vector<Statement> inner = block[i].*member;
      if (inner.empty()) continue;
      if (number-- == 0) return block.insert(block.erase(at), inner.begin(), inner.end()), true;
      if (Change(block[i].*member, number)) return true;
    }
    for (const auto member : {&Statement::target, &Statement::value}) {
      ExprPtr& expr = block[i].*member;
      const ExprPtr simpler = expr ? Simpler(expr, number) : nullptr;
      if (simpler) return expr = simpler, true;
    }
  }
  return false;
}

template <class List>
bool Remove(List& list, size_t& number, size_t kept) {
  const size_t count = list.size() - kept;
  if (number >= count) return number -= count, false;
  return list.erase(list.begin() + static_cast<std::ptrdiff_t>(number)), true;
}

bool Change(Program& program, size_t number) {
  if (Remove(program.procedures, number, 1)) return true;  // main stays
  for (Procedure& procedure : program.procedures)
    if (Change(procedure.body, number)) return true;
  if (Remove(program.globals, number, 0)) return true;
  // Types know structures by their positions.
  for (Structure& structure : program.structures)
    if (!structure.name.empty() && number-- == 0) return structure.name.clear(), true;
  return false;
}

}  // namespace

Program Shrink(Program program, const std::function<bool(const Program&)>& fails) {
  int attempts = kMostAttempts;
  for (bool smaller = true; smaller;) {
    smaller = false;
    for (size_t number = 0; attempts > 0; --attempts) {
      Program copy = program;
      if (!Change(copy, number)) break;
      if (!fails(copy)) {
        ++number;
      } else {
        program = std::move(copy);
        smaller = true;
      }
    }
  }
  return program;
}

}  // namespace generator
