#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "generator/scalars.h"

namespace generator {

/// A type of the language; `array` with no kind is the generic array.
struct Type {
  Kind kind = Kind::None;
  bool array = false;
  int structure = -1;

  bool IsScalar() const { return !array && kind != Kind::None && kind != Kind::Struct; }
  Type Element() const { return {kind, false, structure}; }
  Type Array() const { return {kind, true, structure}; }
  bool operator==(const Type&) const = default;
};

constexpr Type Plain(Kind kind) { return {kind, false, -1}; }
constexpr Type kGeneric{Kind::None, true, -1};
constexpr Type kNoType{};

struct Named {
  std::string name;
  Type type;
};

struct Expr;
using ExprPtr = std::shared_ptr<const Expr>;

struct Expr {
  enum class Form : uint8_t { Literal, Name, Element, Member, Unary, Binary, Call, Evaluated };
  Form form;
  Type type;         // as the compiler sees it
  std::string text;  // the operator, name, or literal as it is written
  Scalar value;      // of a literal
  std::vector<ExprPtr> args;
};

struct Statement {
  enum class Form : uint8_t { Declare, Assign, Call, If, Loop, Return, Break, Continue };
  Form form;
  Type type = {};         // of what is declared
  std::string text = {};  // the name that is declared or counts; the operator of an assignment
  ExprPtr target = {};    // also the bound of a loop
  ExprPtr value = {};     // the right side, the call, the condition; may be absent in a loop
  std::vector<Statement> body = {}, other = {};
  bool style = false;  // a `while` rather than a `for`
};

struct Parameter : Named {
  bool reference = false;
};

struct Procedure {
  std::string name;
  Type result;
  std::vector<Parameter> parameters;
  std::vector<Statement> body;
};

struct Global : Named {
  enum class Scope : uint8_t { Plain, Session, Extern, Constant };
  Scope scope = Scope::Plain;
  ExprPtr value;  // of a constant, the initial value, or what the host provides
};

struct Structure {
  std::string name;
  std::vector<Named> members;
};

struct Program {
  std::vector<Structure> structures;
  std::vector<Global> globals;
  std::vector<Procedure> procedures;  // main is the last
  int runs = 1;

  const Structure& StructureOf(Type type) const {
    return structures[static_cast<size_t>(type.structure)];
  }
};

ExprPtr MakeExpr(Expr::Form form, Type type, std::string text, std::vector<ExprPtr> args);
ExprPtr MakeLiteral(const Scalar& value);
ExprPtr MakeBinary(const std::string& op, ExprPtr left, ExprPtr right);

inline ExprPtr MakeText(const std::string& text) {
  return MakeLiteral(Scalar::Text(Kind::String, text));
}
inline ExprPtr MakeName(const std::string& name, Type type) {
  return MakeExpr(Expr::Form::Name, type, name, {});
}
/// An integer variable.
inline ExprPtr MakeInt(const std::string& name) { return MakeName(name, Plain(Kind::Int)); }
/// A call of a procedure or built-in.
inline ExprPtr MakeCall(const std::string& name, Type type, std::vector<ExprPtr> args) {
  return MakeExpr(Expr::Form::Call, type, name, std::move(args));
}

inline Statement MakeDeclare(const std::string& name, Type type) {
  return {Statement::Form::Declare, type, name};
}
inline Statement MakeAssign(ExprPtr target, const std::string& op, ExprPtr value) {
  return {Statement::Form::Assign, {}, op, std::move(target), std::move(value)};
}
inline Statement MakeCallStatement(ExprPtr call) {
  return {Statement::Form::Call, {}, {}, {}, std::move(call)};
}
inline Statement MakeReturn(ExprPtr value) {
  return {Statement::Form::Return, {}, {}, {}, std::move(value)};
}
inline Statement MakeIf(ExprPtr condition, std::vector<Statement> body) {
  return {Statement::Form::If, {}, {}, {}, std::move(condition), std::move(body)};
}
/// Prints the text and the value, and ends the line.
Statement MakePrint(const std::string& label, ExprPtr value);

std::string Render(const Program& program);

}  // namespace generator
