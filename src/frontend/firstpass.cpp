#include "frontend/firstpass.h"

#include <algorithm>
#include <iterator>

#include "expr/exprnotes.h"
#include "frontend/compilehost.h"
#include "frontend/compsession.h"
#include "frontend/declare.h"
#include "frontend/include.h"
#include "frontend/prochead.h"
#include "frontend/script.h"
#include "frontend/scriptscan.h"
#include "frontend/stmtcomp.h"
#include "frontend/structdef.h"
#include "functions/funclist.h"
#include "kel/kelascii.h"
#include "kel/nearestname.h"
#include "kel/stop.h"
#include "values/errcodes.h"
#include "values/errhints.h"

namespace tamber {

namespace {

/// Included files nest at most this deep: each is read from within the one that includes it.
constexpr size_t kMaxIncludeDepth = 200;

using Handler = bool (*)(CompileSession&, TamberScript&);

bool ReadStructure(CompileSession& session, TamberScript& script) {
  const char* const start = script.GetTokeniser().GetSearchPtr();
  script.GetTokeniser().ReadToken(true, false);
  const KelString name(script.GetTokeniser().Token());
  script.GetTokeniser().SetSearch(start);
  const uint32_t line = script.GetStatementLine();
  const int32_t error = DefineStructure(session.Host(), script, kScriptStruct);
  if (error != ERR_SUCCESS) return session.FailHere(script);
  session.Host().Declared().Add(Name(name), script.GetText()->Name(), line);
  session.NoteDeclared(name);
  return true;
}

bool SkipComment(CompileSession& session, TamberScript& script) {
  return script.SkipBlockComment() || session.Fail(script, ERR_SCRNOMORELINES, kOpenComment);
}

bool RefuseEndProc(CompileSession& session, TamberScript& script) {
  return session.Fail(script, ERR_ENDPROCNOPROC, script.GetTokeniser().Token());
}

template <bool (*kRead)(CompileSession&, ScriptLine&)>
bool Read(CompileSession& session, TamberScript& script) {
  return kRead(session, script);
}

struct Keyword {
  std::string_view word;
  Handler handler;
};

constexpr Keyword kKeywords[] = {
    {"proc", Read<ReadProcedure>},
    {"const", Read<DeclareConstants>},
    {"constant", Read<DeclareConstants>},
    {"session", Read<DeclareSession>},
    {"extern", Read<DeclareExternals>},
    {"struct", ReadStructure},
    {"include", IncludeFile},
    {"endproc", RefuseEndProc},
    {"/*", SkipComment},
};

void NoteUnknownWord(CompileHost& host, const KelString& word) {
  if (!UsualHint(ERR_BADSTATEMENT, word.View()).empty()) return;
  ErrorNotes& notes = host.Run().notes;
  constexpr std::string_view kStatements[] = {"if",    "while",    "for",  "return",
                                              "break", "continue", "exit", "call"};
  const bool isStatement =
      std::any_of(std::begin(kStatements), std::end(kStatements),
                  [&](std::string_view statement) { return kel::EqualsNoCase(word, statement); });
  constexpr uint32_t kScopes = VARLIST_GLOBAL | VARLIST_CONSTANT | VARLIST_EXTERNAL;
  if (isStatement || host.Functions().FindFunction(word) != 0 ||
      host.Procedures().FindProcedure(word) != 0 || host.FindVariable(word, kScopes) != nullptr) {
    notes.Hint(
        "outside of procedures there are only declarations; statements belong in procedures");
    return;
  }
  kel::NearestName nearest(word);
  for (const Keyword& keyword : kKeywords) nearest.Offer(keyword.word);
  OfferTypes(host.Types(), nearest);
  NoteNearest(nearest, notes);
}

bool ReadTopLevelLine(CompileSession& session, TamberScript& script) {
  Tokeniser& tokeniser = script.GetTokeniser();
  tokeniser.ReadToken();
  if (tokeniser.GetLastError() != 0) return session.Fail(script, tokeniser.GetLastError(), "");
  const KelString word(tokeniser.Token());
  if (word.IsEmpty()) return true;
  if (session.Host().Types().Lookup(word) != nullptr) {
    return FindTypeLine(tokeniser) == TypeLine::Header ? ReadTypedProcedure(session, script)
                                                       : DeclareGlobals(session, script);
  }
  for (const Keyword& keyword : kKeywords) {
    if (kel::EqualsNoCase(word, keyword.word)) return keyword.handler(session, script);
  }
  session.Fail(script, ERR_BADSTATEMENT, word);
  NoteUnknownWord(session.Host(), word);
  return false;
}

/// Counts a script among those that are being loaded while it lives. A host may compile buffers of
/// one name while another of that name is being read.
class Loading {
 public:
  Loading(CompileHost& host, const KelString& name)
      : names_(host.Loading()), name_(names_.insert(name.Str())) {}
  Loading(const Loading&) = delete;
  Loading& operator=(const Loading&) = delete;
  ~Loading() { names_.erase(name_); }

 private:
  std::multiset<std::string>& names_;
  std::multiset<std::string>::iterator name_;
};

}  // namespace

bool RunFirstPass(CompileSession& session, TamberScript& script) {
  CompileHost& host = session.Host();
  if (host.Loading().size() >= kMaxIncludeDepth) {
    return session.Fail(script, ERR_INTERNAL, script.GetName());
  }
  const Loading loading(host, script.GetName());
  try {
    while (script.ReadLogicalLine()) {
      if (!ReadTopLevelLine(session, script)) return false;
      if (host.Error() != ERR_SUCCESS && !session.GoOn(script, script.GetOffset(""))) {
        return false;
      }
    }
  } catch (const kel::Interrupted&) {
    return session.Fail(script, ERR_STOPPED, "");
  }
  return true;
}

}  // namespace tamber
