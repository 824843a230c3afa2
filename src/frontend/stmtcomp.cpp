#include "frontend/stmtcomp.h"

#include "expr/exprnotes.h"
#include "frontend/compassign.h"
#include "frontend/compcall.h"
#include "frontend/compdecl.h"
#include "frontend/compfor.h"
#include "frontend/compif.h"
#include "frontend/compile.h"
#include "frontend/compilehost.h"
#include "frontend/compwhile.h"
#include "functions/funclist.h"
#include "kel/kelascii.h"
#include "kel/nearestname.h"
#include "statements/statdecl.h"
#include "statements/statexit.h"
#include "statements/statexpr.h"
#include "statements/statgoto.h"
#include "values/errcodes.h"
#include "values/errhints.h"

namespace tamber {

namespace {

/// Blocks deeper than this are refused: the compiler calls itself for each.
constexpr uint32_t kMaxDepth = 1000;

constexpr uint32_t kLoopFlags = kInFor | kInWhile;

using Handler = bool (*)(StatementCompiler&, uint32_t flags);

template <int32_t kCode>
bool Unmatched(StatementCompiler& compiler, uint32_t) {
  compiler.Fail(kCode, compiler.Tokens().Token());
  compiler.NoteOpenBlock();
  return false;
}

template <enum_StatementKind kKind, int32_t kCode>
bool LoopJump(StatementCompiler& compiler, uint32_t flags) {
  if ((flags & kLoopFlags) == 0) return Unmatched<kCode>(compiler, flags);
  compiler.Append<StatementBase>(kKind);
  return true;
}

bool CompileExit(StatementCompiler& compiler, uint32_t) {
  compiler.Append<StatementExit>();
  return true;
}

bool SkipComment(StatementCompiler& compiler, uint32_t) {
  return compiler.Script().SkipBlockComment() || compiler.Fail(ERR_SCRNOMORELINES, kOpenComment);
}

struct Keyword {
  std::string_view word;
  Handler handler;
};

constexpr Keyword kKeywords[] = {
    {"if", CompileIf},
    {"while", CompileWhile},
    {"for", CompileFor},
    {"call", CompileCall},
    {"return", CompileReturn},
    {"break", LoopJump<STATEMENT_BREAK, ERR_BREAKUNMATCHED>},
    {"continue", LoopJump<STATEMENT_CONTINUE, ERR_CONTUNMATCHED>},
    {"exit", CompileExit},
    {"/*", SkipComment},
    {"endif", Unmatched<ERR_ENDIFUNMATCHED>},
    {"else", Unmatched<ERR_ELSEUNMATCHED>},
    {"endwhile", Unmatched<ERR_WENDUNMATCHED>},
    {"wend", Unmatched<ERR_WENDUNMATCHED>},
};

bool IsNameText(std::string_view name) {
  for (const char c : name) {
    if (!kel::IsAlnum(c) && c != '_') return false;
  }
  return !name.empty();
}

/// Reads another text as the script while it lives.
class ScriptSwitch {
 public:
  ScriptSwitch(ScriptLine*& slot, ScriptLine* script) : slot_(slot), before_(slot) {
    slot = script;
  }
  ScriptSwitch(const ScriptSwitch&) = delete;
  ScriptSwitch& operator=(const ScriptSwitch&) = delete;
  ~ScriptSwitch() { slot_ = before_; }

 private:
  ScriptLine*& slot_;
  ScriptLine* before_;
};

}  // namespace

StatementCompiler::StatementCompiler(CompileHost& host, NameMemo& names, StatementTables& tables,
                                     TamberProcedure& procedure, ScriptLine& script,
                                     const BlockTable& blocks, NameTest declaredLater)
    : host_(host),
      names_(names),
      tables_(tables),
      procedure_(procedure),
      script_(&script),
      blocks_(&blocks),
      declaredLater_(std::move(declaredLater)),
      expressions_(names, &procedure.Locals()) {
  names_.BeginBody(procedure.Locals());
}

bool StatementCompiler::CompileBlock(uint32_t endLine, uint32_t flags) {
  if (depth_ > kMaxDepth) return Fail(ERR_INTERNAL, Tokens().Token());
  ++depth_;
  // The line before the block opens it; the procedure itself is no block.
  const uint32_t outer = std::exchange(blockLine_, depth_ > 1 ? Line() : 0);
  bool compiled = true;
  while (compiled && script_->GetNextLine() < endLine) compiled = CompileStatement(flags);
  --depth_;
  blockLine_ = outer;
  return compiled;
}

bool StatementCompiler::CompilePart(std::string_view text, uint32_t offset, uint32_t flags) {
  // A part has no lines that could close a block, so it gets a table of its own without any.
  const BlockTable noBlocks;
  const auto source = ScriptText::FromBuffer(script_->GetName(), std::string(text), Line());
  if (!source) return Fail(ERR_NOMEMORY, "");
  ScriptLine part(source, offset);
  const BlockTable* const blocks = std::exchange(blocks_, &noBlocks);
  const ScriptSwitch reading(script_, &part);
  const bool compiled = CompileStatement(flags);
  blocks_ = blocks;
  return compiled;
}

bool StatementCompiler::CompileStatement(uint32_t flags) {
  if (host_.Error() >= kFirstFatalError) return false;
  if (!script_->ReadLogicalLine()) return true;
  Tokeniser& tokeniser = Tokens();
  tokeniser.ReadToken();
  if (tokeniser.GetLastError() != 0) return Fail(tokeniser.GetLastError(), "");
  const std::string_view word = tokeniser.Token();
  if (word.empty()) return true;
  const KnownName& known = names_.Find(word);
  // A variable may have the name of its type, so what follows the word counts before what it is.
  if (known.type != nullptr && FindTypeLine(tokeniser) == TypeLine::Declaration)
    return CompileLocals(*this);
  if (known.IsVariable()) return CompileAssignment(*this);
  if (known.function != 0 || known.procedure != nullptr) return CompileDiscarded(*this);
  return CompileKeyword(word, flags);
}

bool StatementCompiler::CompileKeyword(std::string_view word, uint32_t flags) {
  for (const Keyword& keyword : kKeywords) {
    if (kel::EqualsNoCase(word, keyword.word)) return keyword.handler(*this, flags);
  }
  if (names_.Find(word).type != nullptr) return CompileLocals(*this);
  return FailUnknown(std::string(word));
}

bool StatementCompiler::FailUnknown(std::string_view word) {
  const bool isCall = Tokens().PeekNextChar() == '(';
  const bool isAssigned = Tokens().PeekNextChar() == '=';
  Fail(ERR_BADSTATEMENT, word);
  if (!UsualHint(ERR_BADSTATEMENT, word).empty()) return false;
  ErrorNotes& notes = host_.Run().notes;
  kel::NearestName nearest(word);
  for (const Keyword& keyword : kKeywords) nearest.Offer(keyword.word);
  for (const std::string_view other : {"endfor", "elif", "elseif"}) nearest.Offer(other);
  if (!isCall) OfferTypes(host_.Types(), nearest);
  NoteNearest(nearest, notes);
  if (nearest.Found().empty()) {
    NoteUnknownName(host_, &procedure_.Locals(), word, isCall, notes);
    if (isAssigned) notes.Hint("a variable is declared before it is assigned: int count");
  }
  return false;
}

void OfferTypes(const TypeList& types, kel::NearestName& nearest) {
  for (uint32_t i = 0; i < types.GetTypeCount(); ++i) nearest.Offer(types.GetTypeName(i));
}

uint32_t StatementCompiler::DeclaringLine(uint32_t slot) const {
  const StatementList& statements = Statements();
  for (uint32_t i = 1; i <= statements.GetCount(); ++i) {
    const auto* declare = statements.Get(i).As<StatementDeclare>();
    if (declare != nullptr && declare->GetSlot() == slot) return declare->GetLine();
  }
  return 0;
}

bool StatementCompiler::CheckLocalName(const KelString& name) {
  ErrorNotes notes;
  const int32_t slot = procedure_.Locals().Find(name);
  if (slot >= 0) {
    const bool isParameter = procedure_.Locals().At(static_cast<uint32_t>(slot)).isParameter;
    notes.Note(isParameter ? "it is a parameter of this procedure"
                           : "this procedure declares it in line " +
                                 std::to_string(DeclaringLine(static_cast<uint32_t>(slot))));
  } else if (IsNameText(name)) {
    // What the script declares further down was no obstacle when scripts were compiled line by
    // line.
    if (names_.Find(name).isFree || declaredLater_(name)) return true;
    if (host_.CheckUniqueVar(name, 0) != 0) {
      names_.NoteFree(name);
      return true;
    }
    notes = host_.Run().notes;
  }
  Fail(ERR_VAREXISTS, name);
  host_.Run().notes = std::move(notes);
  return false;
}

bool StatementCompiler::CompileCondition(Tokeniser& tokeniser, uint32_t& jump) {
  if (!expressions_.CompileExpression(&tokeniser, ";")) return FailExpression();
  AppendExpression(StatementExpression::Use::Tested);
  jump = Append<StatementGoto>(true, false, 0);
  return true;
}

uint32_t StatementCompiler::AppendExpression(StatementExpression::Use use) {
  return Append<StatementExpression>(expressions_.RemoveExpression(), use);
}

bool StatementCompiler::FindBlockEnd(uint32_t& line) {
  const BlockTable::Match match = blocks_->Find(Line());
  if (match.error != 0) return FailAt(match.errorLine, 0, match.error, "");
  line = match.line;
  return true;
}

void StatementCompiler::NoteOpenBlock() {
  if (blockLine_ == 0) return;
  host_.Run().notes.Note("the block that is open here begins in line " +
                         std::to_string(blockLine_));
}

bool StatementCompiler::FailNoEnd(int32_t code, std::string_view end) {
  const uint32_t line = Line();
  const std::string word(Tokens().Token());
  Fail(code, word);
  host_.Run().notes.Note("there is no \"" + std::string(end) + "\" for the \"" + word +
                         "\" of line " + std::to_string(line) + " before line " +
                         std::to_string(procedure_.GetEndLine()) + ", where the procedure ends");
  return false;
}

bool StatementCompiler::FailAt(uint32_t line, uint32_t offset, int32_t code,
                               std::string_view text) {
  host_.SetError(code, KelString(text));
  errorLine_ = line;
  errorOffset_ = offset;
  return false;
}

bool StatementCompiler::Fail(int32_t code, std::string_view text) {
  const std::string_view whole = script_->Whole(text);
  return Fail(code, whole, script_->GetOffset(whole));
}

bool StatementCompiler::Fail(int32_t code, std::string_view text, uint32_t offset) {
  return FailAt(Line(), offset, code, text);
}

bool StatementCompiler::FailExpression() {
  Fail(expressions_.GetError(), expressions_.GetErrorText(), expressions_.GetErrorOffset());
  host_.Run().notes = expressions_.Notes();
  return false;
}

}  // namespace tamber
