#include <algorithm>
#include <random>
#include <set>
#include <utility>

#include "generator/generator.h"

namespace generator {

namespace {

constexpr Kind kScalars[] = {Kind::Bool,   Kind::Char,   Kind::Int,    Kind::Float,
                             Kind::Double, Kind::String, Kind::EString};

class Grower {
 public:
  explicit Grower(uint64_t seed) : random_(seed) {}

  Program Grown() {
    const size_t structures = Below(4);
    for (size_t i = 0; i < structures; ++i) AddStructure();
    AddGlobals();
    AddMeddler("OnError", "INLINE_HANDLER");
    AddMeddler("OnTrouble", "OnError");
    AddMeddler("Touch1", nullptr);
    AddMeddler("Touch2", nullptr);
    const size_t procedures = 1 + Below(5);
    for (size_t i = 0; i < procedures; ++i) AddProcedure("Proc" + std::to_string(i + 1));
    AddMain();
    program_.runs = OneIn(4) ? 2 : 1;
    return std::move(program_);
  }

 private:
  // --- chance ---

  size_t Below(size_t limit) { return static_cast<size_t>(random_() % limit); }
  bool OneIn(size_t count) { return Below(count) == 0; }
  template <class List>
  auto& Any(List& list) {
    return list[Below(std::size(list))];
  }
  Kind AnyKind() { return Any(kScalars); }
  std::string AnyOf(std::initializer_list<const char*> list) {
    return list.begin()[Below(list.size())];
  }

  Type AnyType() {
    const size_t kinds = std::size(kScalars);
    const size_t structures = program_.structures.size();
    // The more variables are of one type, the more copies of it are made.
    if (!globals_.empty() && OneIn(4) && globals_.back().type != kGeneric)
      return globals_.back().type;
    const size_t pick = Below(kinds + (structures > 0 ? 3 : 0));
    Type type = pick < kinds ? Plain(kScalars[pick])
                             : Type{Kind::Struct, false, static_cast<int>(Below(structures))};
    if (OneIn(3)) type.array = true;
    return type;
  }

  static ExprPtr Number(size_t value) {
    return MakeLiteral(Scalar::Whole(Kind::Int, static_cast<int32_t>(value)));
  }

  // --- declarations ---

  void AddStructure() {
    Structure made{"Shape" + std::to_string(program_.structures.size() + 1), {}};
    const size_t members = 1 + Below(4);
    for (size_t i = 0; i < members; ++i)
      made.members.push_back({"m" + std::to_string(i + 1), AnyType()});
    program_.structures.push_back(std::move(made));
  }

  void AddGlobals() {
    using GlobalScope = Global::Scope;
    const auto add = [&](const std::string& name, Type type, GlobalScope scope, ExprPtr value) {
      if (scope == GlobalScope::Extern) value = nullptr;
      program_.globals.push_back({{name, type}, scope, std::move(value)});
      if (scope != GlobalScope::Constant) globals_.push_back({name, type});
    };
    int number = 0;
    for (const Kind kind : kScalars) {
      const std::string end = std::to_string(++number);
      const auto scope = OneIn(6)   ? GlobalScope::Extern
                         : OneIn(6) ? GlobalScope::Session
                                    : GlobalScope::Plain;
      add("g" + end, Plain(kind), scope, kind == Kind::Double ? nullptr : Literal(kind));
      // A constant of another type would be one of this type only after a conversion.
      if (kind != Kind::Double && kind != Kind::EString) {
        add("K" + end, Plain(kind), GlobalScope::Constant, Literal(kind));
        constants_.push_back({"K" + end, Plain(kind)});
      }
    }
    const size_t more = 3 + Below(4);
    for (size_t i = 0; i < more; ++i)
      add("g" + std::to_string(++number), AnyType(),
          OneIn(6) ? GlobalScope::Session : GlobalScope::Plain, nullptr);
    focus_ = globals_.back();
    add("twin", focus_.type, GlobalScope::Plain, nullptr);
    add("generic", kGeneric, GlobalScope::Plain, nullptr);
  }

  /// Changes to the variable that the failed statement is likely about, and to others.
  void AddDamage(std::vector<Statement>& body) {
    const size_t count = 1 + Below(3);
    if (focus_.type.array && OneIn(2))
      body.push_back(MakeAssign(MakeName(focus_.name, focus_.type), "-=", Number(1 + Below(3))));
    for (size_t i = 0; i < count; ++i) AddChange(body);
  }

  /// A procedure that changes what a failed statement, or the expression around its call, may be
  /// using.
  void AddMeddler(const std::string& name, const char* policy) {
    Procedure made{name, policy == nullptr ? Plain(Kind::Int) : kNoType, {}, {}};
    Begin();
    if (policy != nullptr) {
      made.body.push_back(MakeDeclare("ErrHandler", Plain(Kind::String)));
      made.body.push_back(SetPolicy(policy));
      made.body.push_back(MakePrint("<" + name + " ", MakeInt("ErrCode")));
    }
    AddDamage(made.body);
    if (policy == nullptr) made.body.push_back(MakeReturn(Number(Below(3))));
    program_.procedures.push_back(std::move(made));
  }

  ExprPtr CallTouch() {
    const bool known = program_.procedures.size() > 3 && calls_++ < 5;
    return known ? MakeCall(AnyOf({"Touch1", "Touch2"}), Plain(Kind::Int), {}) : nullptr;
  }

  Type PartOfFocus() {
    Type type = focus_.type;
    while (!type.IsScalar() && !OneIn(4))
      type = type.array ? type.Element() : Any(program_.StructureOf(type).members).type;
    return type;
  }

  void AddProcedure(const std::string& name) {
    Procedure made{name, OneIn(4) ? kNoType : AnyType(), {}, {}};
    Begin();
    const size_t parameters = Below(4);
    for (size_t i = 0; i < parameters; ++i) {
      Parameter parameter;
      parameter.name = "p" + std::to_string(i + 1);
      parameter.type = OneIn(2) ? PartOfFocus() : AnyType();
      parameter.reference = OneIn(2);
      if (parameter.reference && OneIn(6)) parameter.type = kGeneric;
      made.parameters.push_back(parameter);
      locals_.push_back(parameter);
    }
    AddLocals(made.body, 1 + Below(3));
    if (OneIn(5)) {
      made.body.push_back(MakeDeclare("ErrHandler", Plain(Kind::String)));
      made.body.push_back(SetPolicy("INLINE_HANDLER"));
    }
    AddStatements(made.body, 2 + Below(5), 2);
    if (made.result != kNoType) made.body.push_back(MakeReturn(AnyResult(made.result)));
    program_.procedures.push_back(std::move(made));
    callable_.push_back(program_.procedures.size() - 1);
  }

  void AddMain() {
    Procedure made{"main", kNoType, {}, {}};
    Begin();
    const bool handled = OneIn(2);
    if (!OneIn(5))
      made.body.push_back(SetPolicy(handled ? AnyOf({"OnError", "OnTrouble"}) : "INLINE_HANDLER"));
    if (OneIn(5)) made.body.push_back(MakeAssign(MakeInt("StrCase"), "=", Number(1)));
    AddLocals(made.body, 3 + Below(4));
    for (const Named& variable : globals_)
      if (variable.type.array && variable.type != kGeneric && !IsLocal(variable.name) && OneIn(2))
        AddResize(made.body, MakeName(variable.name, variable.type));
    const size_t rounds = 1 + Below(3);
    for (size_t i = 0; i < rounds; ++i) {
      if (OneIn(2)) AddRoads(made.body);
      AddStatements(made.body, 3 + Below(8), 3);
    }
    for (const Named& variable : globals_)
      if (!IsLocal(variable.name)) AddShow(made.body, MakeName(variable.name, variable.type));
    for (const Named& variable : locals_)
      AddShow(made.body, MakeName(variable.name, variable.type));
    program_.procedures.push_back(std::move(made));
  }

  void Begin() {
    locals_.clear();
    hidden_.clear();
    counters_.clear();
    names_ = 0;
  }

  static Statement SetPolicy(const std::string& name) {
    const Type type = Plain(Kind::String);
    return MakeAssign(MakeName("ErrHandler", type), "=",
                      name == "INLINE_HANDLER" ? MakeName(name, type) : MakeText(name));
  }

  void AddLocals(std::vector<Statement>& body, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      Named local{"l" + std::to_string(++names_), AnyType()};
      if (OneIn(12)) {
        // Has the name of a global, and the declaration does not always run.
        const Named& global = Any(globals_);
        if (global.type == kGeneric || IsLocal(global.name)) continue;
        local = {global.name, OneIn(2) ? global.type : AnyType()};
        if (local.name == "g1") continue;
        body.push_back(MakeIf(OneIn(2) ? MakeName("g1", Plain(Kind::Bool))
                                       : MakeLiteral(Scalar::Whole(Kind::Bool, 0)),
                              {MakeDeclare(local.name, local.type)}));
      } else {
        body.push_back(MakeDeclare(local.name, local.type));
        if (local.type.array && !OneIn(4)) AddResize(body, MakeName(local.name, local.type));
      }
      locals_.push_back(local);
      hidden_.insert(local.name);
    }
  }

  /// Whether the name of a global means a local in this procedure, be that in scope or not.
  bool IsLocal(const std::string& name) const { return hidden_.count(name) != 0; }

  // --- expressions ---

  ExprPtr Literal(Kind kind) {
    constexpr int32_t kWholes[] = {0,  1,   2,   3,   5,     7,        31,
                                   32, 100, 255, 256, 65536, 16777217, 2147483647};
    constexpr double kReals[] = {0,      0.5,     1,           0.1,     2.75,    0.3,
                                 3.3333, 100.125, 1234567.875, 0.00001, 16777216};
    const int32_t sign = OneIn(4) ? -1 : 1;
    switch (kind) {
      case Kind::Bool:
        return MakeLiteral(Scalar::Whole(kind, OneIn(2)));
      case Kind::Char:
        return MakeLiteral(Scalar::Whole(kind, AnyOf({"a", "Z", "0", "~", " "})[0]));
      case Kind::Int:
        return MakeLiteral(
            Scalar::Whole(kind, OneIn(3) ? sign * Any(kWholes) : static_cast<int32_t>(Below(6))));
      case Kind::Float:
        return MakeLiteral(Scalar::Real(kind, sign * Any(kReals) + 0.0));
      default:
        return MakeText(AnyOf({"", "a", "A", "abc", "ABC", "abd", "say \"x\"",
                               "a text that is too long to be kept in place"}));
    }
  }

  /// The place of some variable, element or member of the type; null when none was found.
  ExprPtr FindPlace(Type type, bool target = false) {
    for (int attempt = 0; attempt < 12; ++attempt) {
      const auto& list = !locals_.empty() && OneIn(2) ? locals_ : globals_;
      const Named& variable = OneIn(3) ? focus_ : Any(list);
      if ((&list == &globals_ || &variable == &focus_) && IsLocal(variable.name)) continue;
      ExprPtr place = MakeName(variable.name, variable.type);
      if (!target && place->type == kGeneric && type.IsScalar()) return nullptr;
      for (int level = 0; level < 6; ++level) {
        if (place->type == type) return place;
        if (place->type.array && place->type != kGeneric) {
          place = MakeExpr(Expr::Form::Element, place->type.Element(), "", {place, Index()});
        } else if (place->type.kind == Kind::Struct) {
          const Named& member = Any(program_.StructureOf(place->type).members);
          place = MakeExpr(Expr::Form::Member, member.type, member.name, {place});
        } else {
          break;
        }
      }
    }
    return nullptr;
  }

  ExprPtr Index() {
    if (!OneIn(5) || indexes_ > 1) return Number(1 + Below(2));
    if (!counters_.empty() && OneIn(2)) return MakeBinary("+", MakeInt(Any(counters_)), Number(1));
    if (!pure_ && OneIn(3))
      return MakeBinary("+", Number(1 + Below(2)), FailingCall("FileGetSize", "/no/such/file"));
    ++indexes_;
    ExprPtr index = Make(Kind::Int, 2);
    --indexes_;
    return index;
  }

  static ExprPtr FailingCall(const char* name, const char* argument) {
    return MakeCall(name, Plain(Kind::Int), {MakeText(argument)});
  }

  ExprPtr Leaf(Kind kind) {
    if (slots_ != nullptr) {
      std::vector<ExprPtr> fitting;
      for (const ExprPtr& slot : *slots_)
        if (slot->type.kind == kind) fitting.push_back(slot);
      if (!fitting.empty() && !OneIn(5)) return Any(fitting);
    } else if (!OneIn(4)) {
      if (kind == Kind::Int && !counters_.empty() && OneIn(4))
        return MakeName(Any(counters_), Plain(kind));
      if (const ExprPtr place = FindPlace(Plain(kind))) return place;
    }
    const bool literal = kind != Kind::Double;
    if (literal && !OneIn(4)) return Literal(kind);
    for (const Named& constant : constants_)
      if (constant.type.kind == kind && literal) return MakeName(constant.name, constant.type);
    // No literal is a double by itself.
    return kind == Kind::Double ? Evaluated(Number(Below(9)), kind) : Literal(kind);
  }

  static ExprPtr Evaluated(const ExprPtr& inner, Kind kind) {
    constexpr std::string_view kNames[] = {"",      "Boolean", "Char",   "Integer",
                                           "Float", "Double",  "String", "String"};
    return MakeExpr(Expr::Form::Evaluated, Plain(kind),
                    "StrEvalAs" + std::string(kNames[static_cast<size_t>(kind)]), {inner});
  }

  /// An expression whose value has the kind, as far as the compiler knows.
  ExprPtr Make(Kind kind, int depth) {
    if (kind == Kind::EString) return Leaf(kind);
    ExprPtr made;
    if (depth > 0 && !OneIn(4))
      made = OneIn(3) ? MakeOdd(kind, depth - 1) : MakeOperation(kind, depth - 1);
    return made ? made : Leaf(kind);
  }

  ExprPtr MakeOperation(Kind kind, int depth) {
    if (kind <= Kind::Double && OneIn(8)) {
      const char* op = kind == Kind::Bool ? "!" : kind == Kind::Int && OneIn(2) ? "~" : "-";
      return MakeExpr(Expr::Form::Unary, Plain(kind), op,
                      {Make(kind == Kind::Bool ? kScalars[Below(5)] : kind, depth)});
    }
    for (int attempt = 0; attempt < 100; ++attempt) {
      const std::string op = AnyOf({"+",  "-", "*", "/",  "%",  "&",  "|",  "^", "<<", ">>", "==",
                                    "!=", "<", ">", "<=", ">=", "&&", "||", "+", "-",  "/"});
      const Kind left = AnyKind(), right = OneIn(3) ? left : AnyKind();
      const bool mixed = left != right && (left == Kind::Char || right == Kind::Char);
      if (ResultOf(op, left, right) != kind || (mixed && kind >= Kind::Char && kind < Kind::String))
        continue;
      const ExprPtr a = Make(left, depth), b = Make(right, depth);
      return MakeBinary(op, a, op == "%" ? NotZero(right, b) : b);
    }
    return nullptr;
  }

  Kind AnyText() { return OneIn(4) ? Kind::EString : Kind::String; }

  /// A divisor that cannot be 0.
  ExprPtr NotZero(Kind kind, const ExprPtr& value) {
    if (kind == Kind::Char) return MakeLiteral(Scalar::Whole(kind, AnyOf({"a", " ", "~"})[0]));
    return OneIn(3) ? MakeBinary("|", value, Number(1)) : Number(1 + Below(9));
  }

  /// Calls, and what else is no operator.
  ExprPtr MakeOdd(Kind kind, int depth) {
    if (pure_) return nullptr;
    const auto call = [&](const char* name, std::vector<ExprPtr> args) {
      return MakeCall(name, Plain(kind), std::move(args));
    };
    if (OneIn(5)) return MakeEvaluated(kind, depth);
    if (slots_ != nullptr) return nullptr;
    if (kind == Kind::Int && OneIn(6))
      return OneIn(2) ? FailingCall("MakeInt", "zz") : FailingCall("FileGetSize", "/no/such/file");
    if (kind == Kind::Int && OneIn(3)) return CallTouch();
    if (kind == Kind::Int && OneIn(5)) return call("StrLen", {Make(Kind::String, depth)});
    if (kind == Kind::Int && OneIn(5)) {
      const ExprPtr array = FindPlace(Plain(AnyKind()).Array());
      return array ? call("ArrayGetSize", {array}) : nullptr;
    }
    if (kind == Kind::Int && OneIn(4))
      return call(OneIn(2) ? "Max" : "Min", {Make(kind, depth), Make(kind, depth)});
    return MakeUserCall(Plain(kind), depth);
  }

  ExprPtr MakeEvaluated(Kind kind, int depth) {
    const bool before = std::exchange(pure_, true);
    ExprPtr made = Evaluated(Make(kind, depth), kind);
    pure_ = before;
    return made;
  }

  ExprPtr MakeUserCall(Type result, int depth) {
    for (const size_t index : callable_) {
      const Procedure& procedure = program_.procedures[index];
      if (procedure.result != result || OneIn(2) || calls_ > 4) continue;
      std::vector<ExprPtr> args;
      for (const Parameter& parameter : procedure.parameters) {
        const Type type = parameter.type == kGeneric ? Plain(AnyKind()).Array() : parameter.type;
        args.push_back(parameter.reference ? FindPlace(type, true) : MakeOf(type, depth));
      }
      if (std::count(args.begin(), args.end(), nullptr) != 0) continue;
      ++calls_;
      return MakeCall(procedure.name, result, std::move(args));
    }
    return nullptr;
  }

  ExprPtr MakeOf(Type type, int depth) {
    if (type.IsScalar()) return Make(OneIn(4) ? Converted(type.kind) : type.kind, depth);
    if (depth > 0 && OneIn(3))
      if (ExprPtr call = MakeUserCall(type, depth - 1)) return call;
    return FindPlace(type);
  }

  /// A kind whose values are converted to `kind` by an assignment.
  Kind Converted(Kind kind) {
    if (kind == Kind::Bool) return kScalars[Below(3)];
    if (kind == Kind::Char) return OneIn(3) ? Kind::String : kScalars[Below(3)];
    if (kind == Kind::String || kind == Kind::EString) return OneIn(2) ? Kind::Char : AnyText();
    return kScalars[Below(5)];
  }

  // --- statements ---

  ExprPtr AnyResult(Type type) {
    const ExprPtr made = MakeOf(type, 2);
    return made ? made : type.IsScalar() ? Literal(type.kind) : AnyTemporary(type);
  }

  /// A variable of a type that had none so far.
  ExprPtr AnyTemporary(Type type) {
    for (const Named& global : globals_)
      if (global.type == type && !IsLocal(global.name)) return MakeName(global.name, type);
    program_.globals.push_back(
        {{"more" + std::to_string(program_.globals.size()), type}, Global::Scope::Plain, nullptr});
    globals_.push_back(program_.globals.back());
    return MakeName(globals_.back().name, type);
  }

  void AddStatements(std::vector<Statement>& body, size_t count, int depth) {
    for (size_t i = 0; i < count; ++i) AddStatement(body, depth);
  }

  void AddStatement(std::vector<Statement>& body, int depth) {
    calls_ = 0;
    const size_t pick = Below(depth > 0 ? 12 : 9);
    if (pick < 5) {
      AddChange(body);
    } else if (pick < 7) {
      body.push_back(MakePrint("", Make(AnyKind(), 3)));
    } else if (pick == 7) {
      AddCall(body);
    } else if (pick == 8) {
      body.push_back(OneIn(2) ? MakePrint("ErrCode ", MakeInt("ErrCode"))
                              : MakeAssign(MakeInt("ErrCode"), "=", Number(0)));
    } else if (pick < 11) {
      Statement branch = MakeIf(Make(OneIn(4) ? AnyKind() : Kind::Bool, 3), {});
      AddStatements(branch.body, 1 + Below(3), depth - 1);
      if (OneIn(2)) AddStatements(branch.other, 1 + Below(2), depth - 1);
      body.push_back(std::move(branch));
    } else {
      AddLoop(body, depth - 1);
    }
  }

  void AddLoop(std::vector<Statement>& body, int depth) {
    const std::string counter = "n" + std::to_string(++names_);
    body.push_back(MakeDeclare(counter, Plain(Kind::Int)));
    Statement loop{
        Statement::Form::Loop, {}, counter, Number(1 + Below(3)), nullptr, {}, {}, OneIn(2)};
    // The header of a `for` ends at the first parenthesis behind the condition, which is none here.
    if (OneIn(3)) loop.value = Make(OneIn(2) ? Kind::Bool : Kind::Float, 2);
    counters_.push_back(counter);
    const size_t outer = locals_.size();
    if (OneIn(3)) AddLocals(loop.body, 1);
    AddStatements(loop.body, 1 + Below(3), depth);
    if (OneIn(4)) {
      const auto leave = OneIn(2) ? Statement::Form::Break : Statement::Form::Continue;
      loop.body.push_back(MakeIf(Make(Kind::Bool, 1), {{leave}}));
      AddStatements(loop.body, 1, depth);
    }
    locals_.resize(std::min(outer, locals_.size()));
    counters_.pop_back();
    body.push_back(std::move(loop));
  }

  void AddCall(std::vector<Statement>& body) {
    if (callable_.empty()) return;
    const Type result = program_.procedures[Any(callable_)].result;
    if (const ExprPtr call = MakeUserCall(result, 3)) body.push_back(MakeCallStatement(call));
    if (OneIn(8)) AddExport(body);
  }

  void AddExport(std::vector<Statement>& body) {
    const Named& global = Any(globals_);
    if (global.type == kGeneric || IsLocal(global.name) || !counters_.empty()) return;
    const Named local{global.name, OneIn(2) ? global.type : AnyType()};
    body.push_back(MakeDeclare(local.name, local.type));
    locals_.push_back(local);
    hidden_.insert(local.name);
    AddChange(body);
    body.push_back(MakeCallStatement(MakeCall("Export", Plain(Kind::Int), {MakeText(local.name)})));
  }

  /// An assignment of some kind.
  void AddChange(std::vector<Statement>& body) {
    if (OneIn(6) && !IsLocal(focus_.name) && !IsLocal("twin")) {
      ExprPtr from = MakeName(focus_.name, focus_.type), to = MakeName("twin", focus_.type);
      if (OneIn(2)) std::swap(from, to);
      return body.push_back(MakeAssign(to, "=", from));
    }
    const Type type = AnyType();
    ExprPtr target = FindPlace(OneIn(6) ? kGeneric : type, true);
    if (!target) return;
    if (target->type.array && OneIn(2)) return AddResize(body, target);
    if (target->type == kGeneric) return AddGeneric(body, target);
    if (!target->type.IsScalar()) {
      const ExprPtr value = MakeOf(target->type, 2);
      if (value) body.push_back(MakeAssign(target, "=", value));
      return;
    }
    const Kind kind = target->type.kind;
    const bool number = kind >= Kind::Char && kind <= Kind::Double;
    std::string op = "=";
    if (OneIn(4) && number) op = AnyOf({"+=", "-=", "*="});
    if (OneIn(4) && kind == Kind::String) op = "+=";
    const ExprPtr value = op == "=" ? MakeOf(target->type, 3) : Make(number ? kind : AnyKind(), 2);
    body.push_back(MakeAssign(target, op, value));
  }

  void AddResize(std::vector<Statement>& body, const ExprPtr& array) {
    const Type element = array->type.Element();
    const bool append = array->type != kGeneric && OneIn(3);
    const ExprPtr value = append ? MakeOf(element, 2) : nullptr;
    if (value) {
      body.push_back(MakeAssign(array, "<<=", value));
    } else {
      body.push_back(MakeAssign(array, OneIn(4) ? "-=" : "+=", Number(1 + Below(3))));
    }
  }

  void AddGeneric(std::vector<Statement>& body, const ExprPtr& array) {
    const ExprPtr source = FindPlace(Plain(AnyKind()).Array());
    if (source) body.push_back(MakeAssign(array, "=", source));
    if (OneIn(3)) body.push_back(MakeAssign(array, "<<=", Make(AnyKind(), 1)));
    const ExprPtr element = MakeExpr(Expr::Form::Element, kNoType, "", {array, Index()});
    if (OneIn(3)) body.push_back(MakeAssign(element, "=", Make(AnyKind(), 1)));
    body.push_back(MakePrint("generic ", element));
  }

  /// Prints all that is in a variable.
  void AddShow(std::vector<Statement>& body, const ExprPtr& place) {
    const Type type = place->type;
    if (type.IsScalar()) {
      body.push_back(MakePrint("= ", place));
    } else if (type.array) {
      const ExprPtr size = MakeCall("ArrayGetSize", Plain(Kind::Int), {place});
      if (type == kGeneric || OneIn(2)) return body.push_back(MakePrint("size ", size));
      const std::string counter = "n" + std::to_string(++names_);
      body.push_back(MakeDeclare(counter, Plain(Kind::Int)));
      Statement loop{Statement::Form::Loop, {}, counter, size, nullptr, {}, {}, true};
      AddShow(loop.body,
              MakeExpr(Expr::Form::Element, type.Element(), "", {place, MakeInt(counter)}));
      body.push_back(std::move(loop));
    } else {
      for (const Named& member : program_.StructureOf(type).members)
        AddShow(body, MakeExpr(Expr::Form::Member, member.type, member.name, {place}));
    }
  }

  // --- one meaning along different roads ---

  /// Computes one expression of a few values, which each time lie somewhere else.
  void AddRoads(std::vector<Statement>& body) {
    std::vector<Kind> kinds;
    std::vector<ExprPtr> values;
    for (size_t count = 2 + Below(3); count > 0; --count) {
      kinds.push_back(AnyKind());
      values.push_back(Literal(kinds.back() == Kind::Double ? Kind::Float : kinds.back()));
    }
    const Kind kind = AnyKind();
    const std::mt19937_64 shape(random_());
    for (size_t roads = 2 + Below(4); roads > 0; --roads) {
      Procedure procedure{"Road" + std::to_string(++names_), Plain(kind), {}, {}};
      const bool inside = OneIn(3);
      std::vector<ExprPtr> slots, args;
      for (size_t i = 0; i < kinds.size(); ++i) {
        const Type type = Plain(kinds[i]);
        if (values[i]->type == type && OneIn(5)) {
          slots.push_back(values[i]);
          continue;
        }
        slots.push_back(AddHome(body, "h" + std::to_string(++names_), type, values[i]));
        if (!inside) continue;
        const Named parameter{"p" + std::to_string(i), type};
        procedure.parameters.push_back({parameter, OneIn(2)});
        args.push_back(std::exchange(slots.back(), MakeName(parameter.name, type)));
      }
      ExprPtr value = MakeFrom(shape, slots, kind);
      if (inside) {
        procedure.body.push_back(MakeReturn(value));
        program_.procedures.push_back(procedure);
        value = MakeCall(procedure.name, procedure.result, args);
      } else if (OneIn(4)) {
        value = Evaluated(value, kind);
      }
      if (OneIn(2)) {
        const ExprPtr result = MakeName("l" + std::to_string(++names_), value->type);
        body.push_back(MakeDeclare(result->text, result->type));
        body.push_back(MakeAssign(result, "=", value));
        value = result;
      }
      body.push_back(MakePrint("road ", value));
    }
  }

  /// The expression that this state of chance makes of these operands.
  ExprPtr MakeFrom(std::mt19937_64 shape, const std::vector<ExprPtr>& slots, Kind kind) {
    std::swap(random_, shape);
    slots_ = &slots;
    ExprPtr made = Make(kind, 4);
    slots_ = nullptr;
    std::swap(random_, shape);
    return made;
  }

  /// Puts the value into a new variable, element or member.
  ExprPtr AddHome(std::vector<Statement>& body, const std::string& name, Type type,
                  const ExprPtr& value) {
    ExprPtr place = MakeName(name, type);
    const size_t pick = Below(4);
    if (pick == 1) {
      program_.globals.push_back({{name, type}, Global::Scope::Plain, nullptr});
    } else if (pick == 2) {
      body.push_back(MakeDeclare(name, type.Array()));
      const ExprPtr array = MakeName(name, type.Array());
      body.push_back(MakeAssign(array, "+=", Number(3)));
      place = MakeExpr(Expr::Form::Element, type, "", {array, Number(2)});
    } else if (pick == 3) {
      const Type whole{Kind::Struct, false, static_cast<int>(program_.structures.size())};
      program_.structures.push_back({"T" + name, {{"m1", Plain(Kind::String)}, {"m2", type}}});
      body.push_back(MakeDeclare(name, whole));
      place = MakeExpr(Expr::Form::Member, type, "m2", {MakeName(name, whole)});
    } else {
      body.push_back(MakeDeclare(name, type));
    }
    body.push_back(MakeAssign(place, "=", value));
    return place;
  }

  std::mt19937_64 random_;
  Program program_;
  std::vector<Named> globals_, constants_, locals_;
  std::vector<std::string> counters_;
  std::set<std::string> hidden_;
  Named focus_;  // what most of the program is about
  std::vector<size_t> callable_;
  const std::vector<ExprPtr>* slots_ = nullptr;
  bool pure_ = false;
  int names_ = 0;
  int indexes_ = 0;
  int calls_ = 0;
};

}  // namespace

Program Grow(uint64_t seed) { return Grower(seed).Grown(); }

}  // namespace generator
