#include "generator/program.h"

namespace generator {

namespace {

constexpr int kUnaryPrecedence = 100;

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c == '\n' ? "\\n" : std::string(1, c);
  }
  return quoted + "\"";
}

class Renderer {
 public:
  explicit Renderer(const Program& program) : program_(program) {}

  std::string All() {
    for (const Structure& structure : program_.structures) {
      if (structure.name.empty()) continue;
      Line("struct " + structure.name);
      for (const Named& member : structure.members)
        Line("  " + Word(member.type) + " " + member.name);
      Line("endstruct");
    }
    for (const Global& global : program_.globals) Declare(global);
    for (const Procedure& procedure : program_.procedures) Define(procedure);
    return std::move(out_);
  }

 private:
  using Form = Statement::Form;

  void Line(const std::string& text) { out_ += std::string(indent_, ' ') + text + "\n"; }

  std::string Word(Type type) const {
    constexpr std::string_view kWords[] = {"array",  "bool",   "char",    "int",   "float",
                                           "double", "string", "estring", "struct"};
    const std::string word = type.kind == Kind::Struct
                                 ? program_.StructureOf(type).name
                                 : std::string(kWords[static_cast<size_t>(type.kind)]);
    return type.array && type.kind != Kind::None ? word + "[]" : word;
  }

  void Declare(const Global& global) {
    constexpr std::string_view kWords[] = {"", "session ", "extern ", "const "};
    const bool valued = global.value && global.scope != Global::Scope::Extern;
    Line(std::string(kWords[static_cast<size_t>(global.scope)]) + Word(global.type) + " " +
         global.name + (valued ? " = " + Text(*global.value) : ""));
  }

  void Define(const Procedure& procedure) {
    std::string header = procedure.result == kNoType ? "proc" : Word(procedure.result);
    header += " " + procedure.name + "(";
    for (const Parameter& parameter : procedure.parameters) {
      if (header.back() != '(') header += ", ";
      header += Word(parameter.type) + (parameter.reference ? " &" : " ") + parameter.name;
    }
    Line(header + ")");
    Block(procedure.body);
    Line("endproc");
  }

  void Block(const std::vector<Statement>& statements) {
    indent_ += 2;
    for (const Statement& statement : statements) Write(statement);
    indent_ -= 2;
  }

  void Write(const Statement& statement) {
    switch (statement.form) {
      case Form::Declare:
        return Line(Word(statement.type) + " " + statement.text);
      case Form::Assign:
        return Line(Text(*statement.target) + " " + statement.text + " " + Text(*statement.value));
      case Form::Call:
        return Line(Text(*statement.value));
      case Form::If:
        return WriteIf(statement, "if ");
      case Form::Loop:
        return WriteLoop(statement);
      case Form::Return:
        return Line("return " + Text(*statement.value));
      case Form::Break:
        return Line("break");
      case Form::Continue:
        return Line("continue");
    }
  }

  void WriteIf(const Statement& statement, const std::string& word) {
    Line(word + Text(*statement.value));
    Block(statement.body);
    if (statement.other.size() == 1 && statement.other[0].form == Form::If)
      return WriteIf(statement.other[0], "elif ");
    if (!statement.other.empty()) {
      Line("else");
      Block(statement.other);
    }
    Line("endif");
  }

  void WriteLoop(const Statement& statement) {
    const std::string& counter = statement.text;
    std::string condition = counter + " < " + Text(*statement.target);
    if (statement.value) condition += " && " + Text(*statement.value, PrecedenceOf("&&") + 1);
    if (statement.style) {
      Line(counter + " = 0");
      Line("while " + condition);
      Line("  " + counter + " += 1");
      Block(statement.body);
      return Line("wend");
    }
    Line("for (" + counter + " = 0; " + condition + "; " + counter + " += 1)");
    Block(statement.body);
    Line("endfor");
  }

  /// The expression, in parentheses if it binds looser than `least`.
  static std::string Text(const Expr& expr, int least = 0) {
    switch (expr.form) {
      case Expr::Form::Literal:
      case Expr::Form::Name:
        return expr.text;
      case Expr::Form::Element:
        return Text(*expr.args[0], kUnaryPrecedence + 1) + "[" + Text(*expr.args[1]) + "]";
      case Expr::Form::Member:
        return Text(*expr.args[0], kUnaryPrecedence + 1) + "." + expr.text;
      case Expr::Form::Unary: {
        const std::string text = expr.text + Text(*expr.args[0], kUnaryPrecedence + 1);
        return least > kUnaryPrecedence ? "(" + text + ")" : text;
      }
      case Expr::Form::Binary: {
        const int own = PrecedenceOf(expr.text);
        const std::string text =
            Text(*expr.args[0], own) + " " + expr.text + " " + Text(*expr.args[1], own + 1);
        return own < least ? "(" + text + ")" : text;
      }
      case Expr::Form::Evaluated:
        return expr.text + "(" + Quoted(Text(*expr.args[0])) + ")";
      case Expr::Form::Call:
        break;
    }
    std::string text = expr.text + "(";
    for (const ExprPtr& arg : expr.args) {
      if (text.back() != '(' || &arg != &expr.args[0]) text += ", ";
      text += Text(*arg);
    }
    return text + ")";
  }

  const Program& program_;
  std::string out_;
  size_t indent_ = 0;
};

std::string Written(const Scalar& value) {
  if (value.IsText()) return Quoted(value.text);
  if (value.kind == Kind::Char) {
    const char c = static_cast<char>(value.whole);
    return c == '\'' || c == '\\' ? std::string("'\\") + c + "'" : std::string("'") + c + "'";
  }
  std::string text = TextOf(value);
  if (value.kind >= Kind::Float && text.find('.') == std::string::npos) text += ".0";
  return text;
}

}  // namespace

ExprPtr MakeExpr(Expr::Form form, Type type, std::string text, std::vector<ExprPtr> args) {
  return std::make_shared<const Expr>(Expr{form, type, std::move(text), {}, std::move(args)});
}

ExprPtr MakeLiteral(const Scalar& value) {
  const Type type = Plain(value.kind);
  // A literal has no sign, and no character of its own for a negative byte or byte 0.
  if (value.kind == Kind::Char && value.whole <= 0) throw Unspecified();
  if (value.kind >= Kind::Int && !value.IsText() && value.AsDouble() < 0) {
    Scalar positive = value;
    positive.whole = static_cast<int32_t>(0 - static_cast<uint32_t>(value.whole));
    positive.real = -value.real;
    if (value.whole == positive.whole && value.whole != 0)
      return MakeBinary("-", MakeLiteral(Scalar::Whole(Kind::Int, value.whole + 1)),
                        MakeLiteral(Scalar::Whole(Kind::Int, 1)));
    return MakeExpr(Expr::Form::Unary, type, "-", {MakeLiteral(positive)});
  }
  Expr literal{Expr::Form::Literal, type, Written(value), value, {}};
  // A float literal keeps the digits of its text, which a double may want.
  if (value.kind == Kind::Float) literal.value.real = std::stod(literal.text);
  return std::make_shared<const Expr>(std::move(literal));
}

ExprPtr MakeBinary(const std::string& op, ExprPtr left, ExprPtr right) {
  const Type type = Plain(ResultOf(op, left->type.kind, right->type.kind));
  return MakeExpr(Expr::Form::Binary, type, op, {std::move(left), std::move(right)});
}

Statement MakePrint(const std::string& label, ExprPtr value) {
  const ExprPtr joined = MakeBinary("+", MakeText(label), std::move(value));
  return MakeCallStatement(
      MakeCall("Print", Plain(Kind::Int), {MakeBinary("+", joined, MakeText("\n"))}));
}

std::string Render(const Program& program) { return Renderer(program).All(); }

}  // namespace generator
