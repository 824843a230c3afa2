#include "frontend/declare.h"

#include <memory>

#include "expr/exprcomp.h"
#include "frontend/compilehost.h"
#include "frontend/compsession.h"
#include "frontend/declcheck.h"
#include "frontend/declread.h"
#include "frontend/evaluate.h"
#include "frontend/scrline.h"
#include "values/cellops.h"
#include "values/errcodes.h"
#include "values/varliteral.h"

namespace tamber {

namespace {

/// Reads one line of declarations.
class Declaration {
 public:
  Declaration(CompileSession& session, ScriptLine& script)
      : session_(session),
        host_(session.Host()),
        script_(script),
        tokeniser_(script.GetTokeniser()),
        reader_(host_, tokeniser_) {}

  /// Reads the next token as the type word.
  bool ReadTypeWord();
  /// Takes the current token as the type word.
  bool ReadType();
  /// Declares the names that follow, each with `declare`.
  template <class Declare>
  bool ForEachName(const Declare& declare);

  bool DeclareVariable(const DeclaredName& declared, uint32_t flags);
  bool DeclareTypedConstant(const DeclaredName& declared);
  bool DeclareUntypedConstants();
  bool DeclareExternal(const DeclaredName& declared);

 private:
  bool CheckName(const KelString& name);
  bool NextToken();
  bool NextIs(std::string_view token);
  bool ReadEqual();
  bool Initialise(Variable& variable, const DeclaredName& declared);
  bool DeclareUntypedConstant(const KelString& name);
  VarHolder Make(const DeclaredName& declared);
  void Add(VarHolder variable, enum_VarListType scope);
  bool Fail(int32_t code, std::string_view text) { return session_.Fail(script_, code, text); }

  CompileSession& session_;
  CompileHost& host_;
  ScriptLine& script_;
  Tokeniser& tokeniser_;
  DeclarationReader reader_;
};

/// Makes the empty variable; null when there is no memory for its elements.
VarHolder Declaration::Make(const DeclaredName& declared) {
  VarHolder variable(MakeVariable(declared.type, Name(declared.name)));
  if (declared.arraySize != 0) variable->SetArraySize(declared.arraySize);
  if (declared.type->IsArray() && variable->GetElementCount() != declared.arraySize) {
    Fail(ERR_NOMEMORY, declared.name);
    return nullptr;
  }
  return variable;
}

bool Declaration::NextToken() {
  tokeniser_.ReadToken();
  return tokeniser_.GetLastError() == 0 || Fail(tokeniser_.GetLastError(), "");
}

/// Reads the next token if it is this one.
bool Declaration::NextIs(std::string_view token) {
  const char* const before = tokeniser_.GetSearchPtr();
  tokeniser_.ReadToken(true, false);
  if (tokeniser_.Token() == token) return true;
  tokeniser_.SetSearch(before);
  return false;
}

bool Declaration::ReadTypeWord() { return NextToken() && ReadType(); }

bool Declaration::ReadType() {
  const int32_t error = reader_.ReadType(KelString(tokeniser_.Token()));
  return error == ERR_SUCCESS || Fail(error, reader_.ErrorText());
}

bool Declaration::CheckName(const KelString& name) {
  return CheckDeclaredName(host_, name) || session_.FailHere(script_);
}

template <class Declare>
bool Declaration::ForEachName(const Declare& declare) {
  for (bool more = true; more;) {
    DeclaredName declared;
    int32_t error = reader_.ReadName(declared);
    if (error != ERR_SUCCESS) return Fail(error, reader_.ErrorText());
    if (!declare(declared)) return false;
    error = reader_.ReadSeparator(more);
    if (error != ERR_SUCCESS) return Fail(error, reader_.ErrorText());
  }
  return true;
}

bool Declaration::ReadEqual() {
  if (NextIs("=")) return true;
  return NextToken() && Fail(ERR_ASSIGNNOEQUAL, tokeniser_.Token());
}

bool Declaration::Initialise(Variable& variable, const DeclaredName& declared) {
  const VarHolder value = Evaluate(session_, script_, ",;", &declared);
  if (!value) return false;
  if (variable.Assign(value.get()) != 0) return true;
  Fail(ERR_ASSIGNMISMATCH, variable.GetVarName());
  host_.Run().notes.Note(MismatchText(*declared.type, *TypeOf(*value)));
  return false;
}

void Declaration::Add(VarHolder variable, enum_VarListType scope) {
  host_.Declared().Add(variable->OwnName(), script_.GetText()->Name(), script_.GetStatementLine());
  AddOwned(host_, std::move(variable), scope);
}

bool Declaration::DeclareVariable(const DeclaredName& declared, uint32_t flags) {
  if (!CheckName(declared.name)) return false;
  VarHolder variable = Make(declared);
  if (!variable) return false;
  if (NextIs("=") && !Initialise(*variable, declared)) return false;
  variable->SetVarFlags(flags);
  if ((flags & Variable::Session) != 0) host_.LoadSessionValue(*variable);
  Add(std::move(variable), VARLIST_GLOBAL);
  return true;
}

bool Declaration::DeclareTypedConstant(const DeclaredName& declared) {
  if (!CheckName(declared.name)) return false;
  VarHolder variable = Make(declared);
  if (!variable || !ReadEqual() || !Initialise(*variable, declared)) return false;
  Add(std::move(variable), VARLIST_CONSTANT);
  session_.NoteDeclared(declared.name);
  return true;
}

bool Declaration::DeclareUntypedConstant(const KelString& name) {
  if (!CheckName(name) || !ReadEqual()) return false;
  std::optional<double> exact;
  const VarHolder value = Evaluate(session_, script_, ",;", nullptr, &exact);
  if (!value) return false;
  const TypeRef type = TypeOf(*value);
  VarHolder variable(exact ? new VarLiteral(Name(name), value->GetFloatValue(), *exact)
                           : MakeVariable(type, Name(name)));
  if (type->GetKind() == Kind::None || !variable->Assign(value.get())) {
    return Fail(ERR_ASSIGNMISMATCH, name);
  }
  Add(std::move(variable), VARLIST_CONSTANT);
  session_.NoteDeclared(name);
  return true;
}

/// The first name has been read.
bool Declaration::DeclareUntypedConstants() {
  for (bool more = true; more;) {
    if (!DeclareUntypedConstant(KelString(tokeniser_.Token()))) return false;
    const int32_t error = reader_.ReadSeparator(more);
    if (error != ERR_SUCCESS) return Fail(error, reader_.ErrorText());
    if (more && !NextToken()) return false;
  }
  return true;
}

bool Declaration::DeclareExternal(const DeclaredName& declared) {
  for (const enum_VarListType scope : {VARLIST_GLOBAL, VARLIST_EXTERNAL}) {
    const Variable* const present = host_.FindVariable(declared.name, scope);
    if (present == nullptr) continue;
    return TypeOf(*present)->IsSame(*declared.type) || Fail(ERR_VARBADEXTTYPE, declared.name);
  }
  if (!CheckName(declared.name)) return false;
  VarHolder variable = Make(declared);
  if (!variable) return false;
  Add(std::move(variable), VARLIST_EXTERNAL);
  return true;
}

}  // namespace

bool DeclareGlobals(CompileSession& session, ScriptLine& script) {
  Declaration line(session, script);
  return line.ReadType() && line.ForEachName([&](const DeclaredName& declared) {
    return line.DeclareVariable(declared, 0);
  });
}

bool DeclareSession(CompileSession& session, ScriptLine& script) {
  Declaration line(session, script);
  return line.ReadTypeWord() && line.ForEachName([&](const DeclaredName& declared) {
    return line.DeclareVariable(declared, Variable::Session);
  });
}

bool DeclareConstants(CompileSession& session, ScriptLine& script) {
  Declaration line(session, script);
  Tokeniser& tokeniser = script.GetTokeniser();
  tokeniser.ReadToken();
  if (tokeniser.GetLastError() != 0) {
    return session.Fail(script, tokeniser.GetLastError(), "");
  }
  // A type word in front of "=" is the name of the constant, and will be refused as such.
  const bool typed = session.Host().Types().Lookup(tokeniser.Token()) != nullptr &&
                     tokeniser.PeekNextChar() != '=';
  if (!typed) return line.DeclareUntypedConstants();
  return line.ReadType() && line.ForEachName([&](const DeclaredName& declared) {
    return line.DeclareTypedConstant(declared);
  });
}

bool DeclareExternals(CompileSession& session, ScriptLine& script) {
  Declaration line(session, script);
  return line.ReadTypeWord() && line.ForEachName([&](const DeclaredName& declared) {
    return line.DeclareExternal(declared);
  });
}

}  // namespace tamber
