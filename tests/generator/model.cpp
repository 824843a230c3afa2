#include <algorithm>
#include <map>

#include "generator/generator.h"

namespace generator {

namespace {

constexpr int kMostSteps = 20000;
constexpr int kDeepest = 60;
constexpr size_t kLargestArray = 200;
constexpr size_t kLongestText = 2000;

struct Node;
using NodePtr = std::shared_ptr<Node>;
using Scope = std::map<std::string, NodePtr>;

/// A variable, element or member; who holds the pointer has a reference to it.
struct Node {
  Type type;
  Type element = {};  // of a generic array, once it has one
  Scalar value = {};
  std::vector<NodePtr> parts = {};
};

struct Fatal {
  int code;
};
/// The end of the run by an error under the default policy.
struct Ended {
  int code;
};
struct TooLong {};

enum class Flow : uint8_t { Next, Break, Continue, Return };

class Model {
 public:
  explicit Model(const Program& program) : program_(program) {
    const auto add = [&](const char* name, const Scalar& value) { globals_[name] = Leaf(value); };
    add("ErrHandler", Scalar::Text(Kind::String, "DEFAULT_HANDLER"));
    add("INLINE_HANDLER", Scalar::Text(Kind::String, "INLINE_HANDLER"));
    add("ErrCode", Scalar::Whole(Kind::Int, 0));
    add("StrCase", Scalar::Whole(Kind::Int, 0));
  }

  Expectation Run() {
    try {
      for (const Global& global : program_.globals) {
        const NodePtr node = globals_[global.name] = Empty(global.type);
        if (global.value) Store(*node, *Eval(*global.value, global.type.kind == Kind::Double));
      }
      while (expected_.runs < program_.runs) RunMain();
    } catch (const Unspecified&) {
      expected_.open = true;
    } catch (const TooLong&) {
      expected_.usable = false;
    }
    return std::move(expected_);
  }

 private:
  using Form = Statement::Form;

  void RunMain() {
    ++expected_.runs;
    expected_.error = 0;
    try {
      pending_ = 0;
      Call(program_.procedures.back(), {});
    } catch (const Ended& end) {
      expected_.error = end.code;
    } catch (const Fatal& fatal) {
      expected_.error = fatal.code;
      // The next run finds the code in ErrCode, and this model does not always know which it is.
      if (fatal.code == kAnyFatal) throw Unspecified();
      globals_["ErrCode"]->value.whole = fatal.code;
    }
  }

  void Step() {
    if (++steps_ > kMostSteps) throw TooLong();
  }

  // --- values ---

  static NodePtr Leaf(const Scalar& value) {
    return std::make_shared<Node>(Node{Plain(value.kind), {}, value});
  }

  NodePtr Empty(Type type) const {
    auto node = std::make_shared<Node>(Node{type, {}, Scalar::Empty(type.kind)});
    if (!type.array && type.kind == Kind::Struct)
      for (const Named& member : program_.StructureOf(type).members)
        node->parts.push_back(Empty(member.type));
    return node;
  }

  static NodePtr Clone(const Node& node) {
    auto clone = std::make_shared<Node>(node);
    for (NodePtr& part : clone->parts) part = Clone(*part);
    return clone;
  }

  static Type ElementOf(const Node& array) {
    return array.type == kGeneric ? array.element : array.type.Element();
  }

  static bool IsText(Type type) { return type.kind == Kind::String || type.kind == Kind::EString; }

  static const Scalar& ScalarOf(const Node& node) {
    if (!node.type.IsScalar()) throw Unspecified();
    return node.value;
  }

  void Store(Node& target, const Node& source) {
    if (&target == &source) return;
    if (target.type.IsScalar()) {
      const auto value = source.type.IsScalar() ? Convert(source.value, target.type.kind)
                                                : std::optional<Scalar>();
      if (source.type.array && source.type.kind == Kind::Char) throw Unspecified();
      if (!value) throw Fatal{kMismatch};
      target.value = *value;
    } else if (target.type.array) {
      if (!source.type.array) throw Fatal{kMismatch};
      const Type from = ElementOf(source);
      if (from == kNoType) throw Unspecified();
      if (target.type == kGeneric) {
        target.element = from;
      } else if (const Type to = ElementOf(target); to != from && !(IsText(to) && IsText(from))) {
        throw Fatal{kMismatch};
      }
      std::vector<NodePtr> parts;
      for (const NodePtr& part : source.parts) {
        parts.push_back(Empty(target.type == kGeneric ? from : ElementOf(target)));
        Store(*parts.back(), *part);
      }
      target.parts = std::move(parts);
    } else {
      if (source.type != target.type) throw Fatal{kMismatch};
      const NodePtr copy = Clone(source);
      for (size_t i = 0; i < target.parts.size(); ++i) Store(*target.parts[i], *copy->parts[i]);
    }
  }

  // --- names ---

  NodePtr Find(const std::string& name) {
    const auto local = locals_->find(name);
    if (local != locals_->end()) return local->second;
    const auto global = globals_.find(name);
    if (global == globals_.end()) throw Fatal{kAnyFatal};
    return global->second;
  }

  /// All indexes are evaluated, from left to right, before the first element is looked for.
  NodePtr Place(const Expr& expr) {
    std::vector<const Expr*> path;
    const Expr* root = &expr;
    for (; root->form == Expr::Form::Element || root->form == Expr::Form::Member;
         root = root->args[0].get())
      path.insert(path.begin(), root);
    NodePtr place = root->form == Expr::Form::Name ? nullptr : Eval(*root, false);
    std::vector<uint32_t> indexes;
    for (const Expr* step : path) {
      if (step->form != Expr::Form::Element) continue;
      const auto index = Convert(EvalScalar(*step->args[1], false), Kind::Int);
      if (!index) throw Unspecified();
      indexes.push_back(static_cast<uint32_t>(index->whole));
    }
    if (!place) place = Find(root->text);
    auto index = indexes.begin();
    for (const Expr* step : path)
      place =
          step->form == Expr::Form::Member ? Member(*place, step->text) : Element(*place, *index++);
    return place;
  }

  NodePtr Member(const Node& whole, const std::string& name) const {
    if (whole.type.array || whole.type.kind != Kind::Struct) throw Fatal{kAnyFatal};
    const auto& members = program_.StructureOf(whole.type).members;
    for (size_t i = 0; i < members.size(); ++i)
      if (members[i].name == name) return whole.parts[i];
    throw Fatal{kAnyFatal};
  }

  static NodePtr Element(const Node& whole, uint32_t index) {
    if (!whole.type.array) throw Fatal{kAnyFatal};
    if (index == 0 || index > whole.parts.size()) throw RunError{kBounds};
    return whole.parts[index - 1];
  }

  // --- expressions ---

  /// `wantsDouble`: whether float literals stand for the doubles of their digits.
  Scalar EvalScalar(const Expr& expr, bool wantsDouble) {
    Step();
    switch (expr.form) {
      case Expr::Form::Literal:
        if (expr.value.kind != Kind::Float) return expr.value;
        return Scalar::Real(wantsDouble ? Kind::Double : Kind::Float, expr.value.real);
      case Expr::Form::Unary:
        return Unary(expr.text[0], EvalScalar(*expr.args[0], wantsDouble && expr.text == "-"));
      case Expr::Form::Binary: {
        const bool inherits = expr.type.kind == Kind::Float || expr.type.kind == Kind::Double;
        const bool wants =
            (wantsDouble && inherits) || IsDouble(*expr.args[0]) || IsDouble(*expr.args[1]);
        const Scalar left = EvalScalar(*expr.args[0], wants);
        const Scalar right = EvalScalar(*expr.args[1], wants);
        Scalar result = Binary(expr.text, left, right, Find("StrCase")->value.whole != 0);
        if (result.text.size() > kLongestText) throw TooLong();
        return result;
      }
      default:
        return ScalarOf(*Place(expr));
    }
  }

  static bool IsDouble(const Expr& expr) { return expr.type.kind == Kind::Double; }

  NodePtr Eval(const Expr& expr, bool wantsDouble) {
    Step();
    switch (expr.form) {
      case Expr::Form::Call:
        return EvalCall(expr);
      case Expr::Form::Evaluated:
        return EvalText(expr);
      case Expr::Form::Name:
      case Expr::Form::Element:
      case Expr::Form::Member:
        return Place(expr);
      default:
        return Leaf(EvalScalar(expr, wantsDouble));
    }
  }

  /// A text is compiled as it runs, with what its names mean by then.
  void CheckNames(const Expr& expr) {
    if (expr.form == Expr::Form::Name && expr.type != kGeneric &&
        Find(expr.text)->type != expr.type)
      throw Unspecified();
    for (const ExprPtr& arg : expr.args) CheckNames(*arg);
  }

  NodePtr EvalText(const Expr& expr) {
    pending_ = 0;
    try {
      CheckNames(*expr.args[0]);
      const auto value = Convert(EvalScalar(*expr.args[0], IsDouble(expr)), expr.type.kind);
      if (!value) throw Unspecified();
      return Leaf(*value);
    } catch (const RunError& error) {
      pending_ = error.code;
    } catch (const Fatal&) {
      pending_ = kFunctionFailed;
    }
    return Leaf(Scalar::Empty(expr.type.kind));
  }

  static bool Fits(Type wanted, Type type) {
    return wanted == kGeneric ? type.array : type == wanted;
  }

  NodePtr EvalCall(const Expr& expr) {
    const auto& procedures = program_.procedures;
    const auto named = [&](const Procedure& each) { return each.name == expr.text; };
    const auto found = std::find_if(procedures.begin(), procedures.end(), named);
    std::vector<NodePtr> args;
    // A built-in forgets earlier errors before its arguments, a procedure behind them.
    if (found == procedures.end()) pending_ = 0;
    for (size_t i = 0; i < expr.args.size(); ++i) {
      const Expr& arg = *expr.args[i];
      const Type wanted = found != procedures.end() ? found->parameters[i].type : kNoType;
      const bool reference = found != procedures.end() && found->parameters[i].reference;
      const NodePtr value = reference ? Place(arg) : Eval(arg, wanted == Plain(Kind::Double));
      // The name of a local whose declaration did not run means something else.
      const bool known = arg.form == Expr::Form::Name || arg.form == Expr::Form::Element ||
                         arg.form == Expr::Form::Member;
      const Type type = arg.type == kGeneric ? value->type : arg.type;
      if (known && type != kNoType && (type != value->type || (reference && !Fits(wanted, type))))
        throw Unspecified();
      args.push_back(reference ? value : Clone(*value));
    }
    if (found == procedures.end()) return CallBuiltIn(expr.text, args);
    pending_ = 0;
    return Call(*found, args);
  }

  NodePtr CallBuiltIn(const std::string& name, const std::vector<NodePtr>& args) {
    const auto whole = [](size_t value) {
      return Leaf(Scalar::Whole(Kind::Int, static_cast<int32_t>(value)));
    };
    // What only the run knows to be no such thing.
    const bool takesArray = name == "ArrayGetSize";
    const bool takesNumber = name == "Max" || name == "Min";
    const bool text = IsText(args[0]->type) && !args[0]->type.array;
    if (args[0]->type.array != takesArray || text == (takesArray || takesNumber))
      throw Unspecified();
    if (name == "Print") {
      expected_.output += ScalarOf(*args[0]).text;
      return whole(1);
    }
    if (takesArray) return whole(args[0]->parts.size());
    if (name == "StrLen") return whole(ScalarOf(*args[0]).text.size());
    if (name == "Export") return whole(Export(args[0]->value.text) ? 1 : 0);
    if (name == "MakeInt" || name == "FileGetSize") {
      pending_ = name == "MakeInt" ? kFunctionFailed : kFileNotFound;
      return whole(0);
    }
    const Kind kind = args[0]->type.kind;
    if (args[1]->type != args[0]->type || (kind != Kind::Int && kind != Kind::Float))
      throw Unspecified();
    const bool less = Binary("<", args[0]->value, args[1]->value, false).whole != 0;
    return less == (name == "Max") ? args[1] : args[0];
  }

  /// From here on the local is the global, or a new one.
  bool Export(const std::string& name) {
    const auto local = locals_->find(name);
    if (local == locals_->end()) {
      pending_ = kFunctionFailed;
      return false;
    }
    NodePtr& global = globals_[name];
    if (!global) global = Empty(local->second->type);
    // What was compiled for the type of the local goes on with another one.
    if (global->type != local->second->type) throw Unspecified();
    Store(*global, *local->second);
    local->second = global;
    return true;
  }

  NodePtr Call(const Procedure& procedure, const std::vector<NodePtr>& args) {
    if (++depth_ > kDeepest) throw TooLong();
    struct Restore {
      Model& model;
      Scope* caller;
      ~Restore() {
        model.locals_ = caller;
        --model.depth_;
      }
    } restore{*this, locals_};
    Scope locals;
    for (size_t i = 0; i < args.size(); ++i) {
      const Parameter& parameter = procedure.parameters[i];
      NodePtr& local = locals[parameter.name];
      local = parameter.reference ? args[i] : Empty(parameter.type);
      if (!parameter.reference) Store(*local, *args[i]);
    }
    locals_ = &locals;
    NodePtr result = procedure.result == kNoType ? nullptr : Empty(procedure.result);
    Execute(procedure.body, result.get());
    return result;
  }

  // --- statements ---

  void Handle(int code) {
    pending_ = 0;
    globals_["ErrCode"]->value.whole = code;
    const std::string policy = Find("ErrHandler")->value.text;
    if (policy == "DEFAULT_HANDLER") throw Ended{code};
    if (policy == "INLINE_HANDLER") return;
    for (const Procedure& procedure : program_.procedures)
      if (procedure.name == policy) return void(Call(procedure, {}));
    throw Fatal{20119};
  }

  /// Evaluates as a statement of its own does, with the policy applied. Null after an error that
  /// leaves no value.
  template <class Evaluate>
  NodePtr Guarded(const Evaluate& evaluate, Type ifDividing) {
    NodePtr value;
    int code = 0;
    try {
      pending_ = 0;
      value = evaluate();
      code = pending_;
    } catch (const RunError& error) {
      code = error.code;
      if (code == kDivideByZero && ifDividing != kNoType) value = Empty(ifDividing);
    }
    // A handler may change what was read.
    if (code != 0 && value && ifDividing != kNoType) value = Clone(*value);
    if (code != 0) Handle(code);
    return value;
  }

  bool Holds(const ExprPtr& condition) {
    const NodePtr value =
        Guarded([&] { return Leaf(EvalScalar(*condition, false)); }, Plain(Kind::Bool));
    return value && IsTrue(value->value);
  }

  Flow Execute(const std::vector<Statement>& statements, Node* result) {
    for (const Statement& statement : statements) {
      Step();
      if (const Flow flow = Execute(statement, result); flow != Flow::Next) return flow;
    }
    return Flow::Next;
  }

  Flow Execute(const Statement& statement, Node* result) {
    switch (statement.form) {
      case Form::Declare:
        Declare(statement);
        return Flow::Next;
      case Form::Assign:
        Assign(statement);
        return Flow::Next;
      case Form::Call:
        Guarded([&] { return Eval(*statement.value, false); }, kNoType);
        return Flow::Next;
      case Form::If:
        return Execute(Holds(statement.value) ? statement.body : statement.other, result);
      case Form::Loop:
        return Repeat(statement, result);
      case Form::Return: {
        const bool wants = result->type == Plain(Kind::Double);
        const NodePtr value =
            Guarded([&] { return Clone(*Eval(*statement.value, wants)); }, statement.value->type);
        if (value) Store(*result, *value);
        return Flow::Return;
      }
      case Form::Break:
        return Flow::Break;
      case Form::Continue:
        return Flow::Continue;
    }
    return Flow::Next;
  }

  void Declare(const Statement& statement) {
    NodePtr& local = (*locals_)[statement.text];
    if (!local) return void(local = Empty(statement.type));
    if (local->type != statement.type || local->type == kGeneric) throw Unspecified();
    Store(*local, *Empty(statement.type));
  }

  void Assign(const Statement& statement) {
    const Expr& target = *statement.target;
    const std::string op = statement.text.substr(0, statement.text.size() - 1);
    const bool resizes = target.type.array && !op.empty();
    const bool named = target.form == Expr::Form::Name;
    const auto place = [&] { return Guarded([&] { return Place(target); }, kNoType); };
    // The value of an operation on an array is evaluated first, a plain target last.
    const NodePtr before = named || resizes ? nullptr : place();
    const ExprPtr value =
        op.empty() || resizes ? statement.value : MakeBinary(op, statement.target, statement.value);
    const bool wants = target.type.kind == Kind::Double && (!resizes || op == "<<");
    const NodePtr source = Guarded([&] { return Clone(*Eval(*value, wants)); }, value->type);
    if (!source || (!before && !named && !resizes)) return;
    const NodePtr found = before ? before : place();
    if (!found) return;
    if (!resizes) return Store(*found, *source);
    if (!found->type.array) throw Unspecified();
    if (op == "<<") return Append(*found, *source);
    const auto count = Convert(ScalarOf(*source), Kind::Int);
    if (!count) throw Fatal{kMismatch};
    Resize(*found, op == "+" ? count->whole : -static_cast<int64_t>(count->whole));
  }

  void Append(Node& array, const Node& value) {
    if (array.parts.size() > kLargestArray) throw TooLong();
    if (value.type.array) throw Unspecified();
    if (array.type == kGeneric && array.element == kNoType) array.element = value.type;
    const NodePtr added = Empty(ElementOf(array));
    Store(*added, value);
    array.parts.push_back(added);
  }

  void Resize(Node& array, int64_t by) {
    const auto size = static_cast<int64_t>(array.parts.size());
    if (by > static_cast<int64_t>(kLargestArray) - size) throw TooLong();
    if (array.type == kGeneric && array.element == kNoType) return;
    const auto wanted = static_cast<size_t>(std::max<int64_t>(size + by, 0));
    while (array.parts.size() > wanted) array.parts.pop_back();
    while (array.parts.size() < wanted) array.parts.push_back(Empty(ElementOf(array)));
  }

  Flow Repeat(const Statement& loop, Node* result) {
    const auto counter = MakeInt(loop.text);
    ExprPtr condition = MakeBinary("<", counter, loop.target);
    if (loop.value) condition = MakeBinary("&&", condition, loop.value);
    Find(loop.text)->value.whole = 0;
    while (Holds(condition)) {
      Step();
      if (loop.style) ++Find(loop.text)->value.whole;
      const Flow flow = Execute(loop.body, result);
      if (flow == Flow::Return) return flow;
      if (flow == Flow::Break) break;
      if (!loop.style) ++Find(loop.text)->value.whole;
    }
    return Flow::Next;
  }

  const Program& program_;
  Expectation expected_;
  Scope globals_;
  Scope none_;
  Scope* locals_ = &none_;
  int pending_ = 0;
  int steps_ = 0;
  int depth_ = 0;
};

}  // namespace

Expectation Predict(const Program& program) { return Model(program).Run(); }

}  // namespace generator
