#include "generator/shrink.h"

#include <algorithm>
#include <optional>

namespace generator {

namespace {

using Block = std::vector<Statement>;

template <class Visitor>
void ForEachBlock(Block& block, const Visitor& visit) {
  visit(block);
  for (Statement& statement : block) {
    if (!statement.body.empty()) ForEachBlock(statement.body, visit);
    if (!statement.other.empty()) ForEachBlock(statement.other, visit);
  }
}

template <class Visitor>
void ForEachBlock(Program& program, const Visitor& visit) {
  for (Procedure& procedure : program.procedures) ForEachBlock(procedure.body, visit);
}

template <class Visitor>
void ForEachExpr(Program& program, const Visitor& visit) {
  ForEachBlock(program, [&](Block& block) {
    for (Statement& statement : block) {
      if (statement.target) visit(statement.target);
      if (statement.value) visit(statement.value);
    }
  });
}

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

class Shrinker {
 public:
  Shrinker(Program program, const std::function<bool(const Program&)>& fails)
      : program_(std::move(program)), fails_(fails) {}

  Program Shrunk() {
    bool smaller = true;
    while (smaller && attempts_ > 0) {
      smaller = RemoveStatements();
      smaller = Unwrap() || smaller;
      smaller = RemoveDeclarations() || smaller;
      smaller = Simplify() || smaller;
    }
    return std::move(program_);
  }

 private:
  bool Take(Program candidate) {
    if (--attempts_ < 0 || !fails_(candidate)) return false;
    program_ = std::move(candidate);
    return true;
  }

  bool RemoveStatements() {
    bool any = false;
    for (size_t chunk = 32; chunk > 0; chunk /= 2)
      for (size_t start = 0; start < Count(); start += chunk)
        while (start < Count() && Take(Without(start, chunk))) any = true;
    return any;
  }

  size_t Count() {
    size_t count = 0;
    ForEachBlock(program_, [&](const Block& block) { count += block.size(); });
    return count;
  }

  Program Without(size_t start, size_t count) const {
    Program copy = program_;
    size_t number = 0;
    ForEachBlock(copy, [&](Block& block) {
      const auto gone = [&](const Statement&) {
        const size_t own = number++;
        return own >= start && own < start + count;
      };
      block.erase(std::remove_if(block.begin(), block.end(), gone), block.end());
    });
    return copy;
  }

  /// Puts the bodies of branches and loops in their place.
  bool Unwrap() {
    bool any = false;
    for (size_t start = 0; start < Count(); ++start) {
      for (const auto member : {&Statement::body, &Statement::other}) {
        Program copy = program_;
        size_t number = 0;
        bool done = false;
        ForEachBlock(copy, [&](Block& block) {
          if (done || start < number || start >= number + block.size()) {
            number += block.size();
            return;
          }
          const auto at = block.begin() + static_cast<std::ptrdiff_t>(start - number);
          const Block inner = std::move((*at).*member);
          number += block.size();
          if (inner.empty()) return;
          done = true;
          block.insert(block.erase(at), inner.begin(), inner.end());
        });
        any = (done && Take(std::move(copy))) || any;
      }
    }
    return any;
  }

  bool RemoveDeclarations() {
    bool any = false;
    const auto remove = [&](auto member, size_t last) {
      for (size_t i = (program_.*member).size() - last; i-- > 0;) {
        Program copy = program_;
        auto& list = copy.*member;
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
        any = Take(std::move(copy)) || any;
      }
    };
    remove(&Program::procedures, 1);  // main stays
    remove(&Program::globals, 0);
    for (size_t i = 0; i < program_.structures.size(); ++i) {
      if (program_.structures[i].name.empty()) continue;
      Program copy = program_;
      copy.structures[i].name.clear();
      any = Take(std::move(copy)) || any;
    }
    return any;
  }

  bool Simplify() {
    bool any = false;
    for (size_t wanted = 0; attempts_ > 0;) {
      Program copy = program_;
      size_t number = wanted;
      bool found = false;
      ForEachExpr(copy, [&](ExprPtr& expr) {
        if (found) return;
        const ExprPtr simpler = Simpler(expr, number);
        found = simpler != nullptr;
        if (found) expr = simpler;
      });
      if (!found) break;
      const bool taken = Take(std::move(copy));
      any = taken || any;
      if (!taken) ++wanted;
    }
    return any;
  }

  Program program_;
  const std::function<bool(const Program&)>& fails_;
  int attempts_ = 1500;
};

}  // namespace

Program Shrink(Program program, const std::function<bool(const Program&)>& fails) {
  return Shrinker(std::move(program), fails).Shrunk();
}

}  // namespace generator
