#include "frontend/prochead.h"

#include "frontend/compile.h"
#include "frontend/compilehost.h"
#include "frontend/compsession.h"
#include "frontend/declcheck.h"
#include "frontend/declread.h"
#include "frontend/scrline.h"
#include "statements/statpopparam.h"
#include "values/errcodes.h"

namespace tamber {

namespace {

bool FailOpenComment(CompileSession& session, ScriptLine& script, const BlockTable& blocks) {
  script.ReadLineAt(blocks.OpenCommentLine());
  script.GetTokeniser().ReadToken();
  return session.Fail(script, ERR_SCRNOMORELINES, kOpenComment);
}

/// Reads one procedure definition.
class HeaderReader {
 public:
  HeaderReader(CompileSession& session, ScriptLine& script)
      : session_(session), script_(script), tokeniser_(script.GetTokeniser()) {}

  bool Read(const TypeRef& returnType);
  bool ReadReturnType(TypeRef& type);

 private:
  bool ReadParameters();
  bool ReadParameter();
  bool ReadReferenceMark();
  bool AddParameter(const DeclaredName& declared, bool isReference);
  void AppendPops(uint32_t line);
  bool ReadBodyRange(BlockTable& blocks);
  bool NextToken();
  bool Fail(int32_t code, std::string_view text) { return session_.Fail(script_, code, text); }

  CompileSession& session_;
  ScriptLine& script_;
  Tokeniser& tokeniser_;
  std::unique_ptr<TamberProcedure> procedure_;
};

bool HeaderReader::NextToken() {
  tokeniser_.ReadToken();
  return tokeniser_.GetLastError() == 0 || Fail(tokeniser_.GetLastError(), "");
}

bool HeaderReader::ReadReturnType(TypeRef& type) {
  KelString word(tokeniser_.Token());
  if (tokeniser_.PeekNextChar() == '[') {
    tokeniser_.ReadToken();
    if (!NextToken()) return false;
    if (tokeniser_.Token() != "]") return Fail(ERR_PROCBADRETTYPE, tokeniser_.Token());
    word += "[]";
  }
  type = session_.Host().Types().FindTypeRef(word);
  return type || Fail(ERR_PROCBADRETTYPE, word);
}

bool HeaderReader::Read(const TypeRef& returnType) {
  if (!NextToken()) return false;
  const KelString name(tokeniser_.Token());
  if (!CheckProcedureName(session_.Host(), name)) return session_.FailHere(script_);
  procedure_ = std::make_unique<TamberProcedure>(name, script_.GetText());
  procedure_->SetReturnType(returnType);
  if (!NextToken()) return false;
  if (tokeniser_.Token() != "(") return Fail(ERR_PROCNOOPENPAR, tokeniser_.Token());
  if (!ReadParameters()) return false;
  AppendPops(script_.GetStatementLine());
  BlockTable blocks;
  if (!ReadBodyRange(blocks)) return false;
  session_.AddBody(std::move(procedure_), std::move(blocks));
  return true;
}

bool HeaderReader::ReadParameters() {
  if (tokeniser_.PeekNextChar() == ')') return true;
  do {
    if (!NextToken() || !ReadParameter() || !NextToken()) return false;
  } while (tokeniser_.Token() == ",");
  return tokeniser_.Token() == ")" || Fail(ERR_VARNOCOMMA, tokeniser_.Token());
}

bool HeaderReader::ReadParameter() {
  const KelString word(tokeniser_.Token());
  if (session_.Host().Types().Lookup(word) == nullptr) return Fail(ERR_PROCBADVARTYPE, word);
  DeclarationReader reader(session_.Host(), tokeniser_);
  int32_t error = reader.ReadType(word);
  if (error != ERR_SUCCESS) return Fail(error, reader.ErrorText());
  const bool isReference = ReadReferenceMark();
  DeclaredName declared;
  error = reader.ReadName(declared);
  if (error != ERR_SUCCESS) return Fail(error, reader.ErrorText());
  return AddParameter(declared, isReference);
}

bool HeaderReader::ReadReferenceMark() {
  const char* const before = tokeniser_.GetSearchPtr();
  tokeniser_.ReadToken(true, false);
  if (tokeniser_.Token() == "&") return true;
  tokeniser_.SetSearch(before);
  return false;
}

bool HeaderReader::AddParameter(const DeclaredName& declared, bool isReference) {
  LocalTable& locals = procedure_->Locals();
  CompileHost& host = session_.Host();
  const bool isNew = !declared.name.IsEmpty() && locals.Find(declared.name) < 0;
  if (!isNew || host.CheckUniqueVar(declared.name, 0) == 0) {
    ErrorNotes notes;
    if (isNew)
      notes = host.Run().notes;
    else if (!declared.name.IsEmpty())
      notes.Note("it is a parameter of this procedure");
    Fail(ERR_VAREXISTS, declared.name);
    host.Run().notes = notes;
    return false;
  }
  Local local;
  local.name = Name(declared.name);
  local.type = declared.type;
  local.isParameter = true;
  local.isReference = isReference;
  locals.Add(std::move(local));
  procedure_->SetParameterCount(locals.Count());
  return true;
}

/// The last argument lies on top of the stack, so the last parameter is taken first.
void HeaderReader::AppendPops(uint32_t line) {
  const LocalTable& locals = procedure_->Locals();
  for (uint32_t slot = locals.Count(); slot-- > 0;) {
    procedure_->Statements().Append(
        std::make_unique<StatementPopParam>(line, locals.At(slot).name));
  }
}

bool HeaderReader::ReadBodyRange(BlockTable& blocks) {
  const ScriptLine::Position header = script_.GetPosition();
  blocks.Build(script_, TypeWords(session_.Host()));
  if (blocks.OpenCommentLine() != 0) return FailOpenComment(session_, script_, blocks);
  if (blocks.NestedProcLine() != 0) {
    script_.ReadLineAt(blocks.NestedProcLine());
    if (!NextToken()) return false;
    return Fail(ERR_PROCNESTEDDEF, tokeniser_.Token());
  }
  if (blocks.EndProcLine() == 0) {
    script_.SetPosition(header);
    return Fail(ERR_PROCNOEND, procedure_->GetName());
  }
  procedure_->SetLines(header.nextLine, blocks.EndProcLine());
  return true;
}

}  // namespace

bool ReadProcedure(CompileSession& session, ScriptLine& script) {
  return HeaderReader(session, script).Read(TypeRef());
}

bool ReadTypedProcedure(CompileSession& session, ScriptLine& script) {
  HeaderReader reader(session, script);
  TypeRef type;
  return reader.ReadReturnType(type) && reader.Read(type);
}

bool ReadPlainScript(CompileSession& session, ScriptLine& script) {
  const KelString name("main");
  if (!CheckProcedureName(session.Host(), name)) return session.FailHere(script);
  const std::shared_ptr<const ScriptText>& text = script.GetText();
  auto procedure = std::make_unique<TamberProcedure>(name, text);
  procedure->SetLines(text->FirstLine(), text->EndLine());
  BlockTable blocks;
  script.SetNextLine(text->FirstLine());
  blocks.Build(script, TypeWords(session.Host()));
  if (blocks.OpenCommentLine() != 0) return FailOpenComment(session, script, blocks);
  session.AddBody(std::move(procedure), std::move(blocks));
  return true;
}

}  // namespace tamber
