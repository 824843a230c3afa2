#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "frontend/blocktable.h"
#include "frontend/namememo.h"
#include "frontend/scripttext.h"
#include "kel/kelascii.h"
#include "statements/procedure.h"

class ScriptLine;
class TamberProcedure;

namespace tamber {

class CompileHost;

/// Where a script failed to compile.
struct CompilePlace {
  std::shared_ptr<const ScriptText> text;  ///< null: nowhere in a script
  uint32_t line = 0;
  uint32_t offset = 0;    ///< of what is wrong in the logical line, from 0
  KelString procedure{};  ///< whose body did not compile; "" at the top level
};

/// What a run-time error of an initialiser does.
enum class LeftError {
  Fails,     ///< it ends compiling and is reported as what did
  Reported,  ///< it is reported, and stands in the context again when all has been compiled
};

/// One call of the host to compile a script, with all that the script includes.
///
/// First the top level of the scripts is read: declarations take effect, and procedures are entered
/// with their headers, so that they can call each other whatever their order. Then the bodies are
/// compiled in that order. A body that has to run before its turn, since an initialiser calls it,
/// is compiled there and then.
class CompileSession {
 public:
  CompileSession(CompileHost& host, LeftError leftError);
  CompileSession(const CompileSession&) = delete;
  CompileSession& operator=(const CompileSession&) = delete;
  ~CompileSession();

  CompileHost& Host() const { return host_; }

  /// Enters a procedure whose header has been read, to be compiled later.
  void AddBody(std::unique_ptr<TamberProcedure> procedure, BlockTable blocks);
  /// Notes that a constant, a structure or a procedure of this name has been declared just now.
  void NoteDeclared(const KelString& name);

  /// Compiles the bodies that are left. False when one failed; it and those behind it are then no
  /// procedures any more.
  [[nodiscard]] bool CompileBodies();
  /// After the top level has failed: compiles the procedures that it had come to, as far as they
  /// can be, and leaves the error as it is.
  void SalvageBodies();

  /// Sets the error and the place of it; always false.
  bool Fail(const ScriptLine& script, int32_t code, std::string_view text);
  /// Notes the place of an error that stands in the context; always false. The first place stays.
  bool FailHere(const ScriptLine& script);
  bool FailHere(const ScriptLine& script, uint32_t offset);
  /// After code that ran did not end well: an error that has been reported, and is gone from the
  /// context since, is its error again. False when there is none.
  bool RestoreReported();
  /// Called when code has run that may have left an error behind: whether compiling goes on.
  bool GoOn(const ScriptLine& script, uint32_t offset);
  /// Ends compiling and returns whether it succeeded. What failed without saying why is an internal
  /// error at the token last read; what succeeded leaves the last error that was only reported.
  [[nodiscard]] bool End(bool compiled, ScriptLine& script);
  /// The place of what stopped the compiler.
  const CompilePlace& Place() const { return place_; }

  /// The session on this thread that has the procedure's body still to compile; else null.
  static CompileSession* FindFor(const TamberProcedure& procedure);
  [[nodiscard]] bool CompileNow(TamberProcedure& procedure);

 private:
  struct Body {
    TamberProcedure* procedure;
    BlockTable blocks;
    uint32_t declared;  // names declared before it
  };

  bool CompileBody(Body& body);
  bool CompileStatements(Body& body);
  bool FinishBody(TamberProcedure& procedure);
  void Drop(TamberProcedure& procedure);
  void DropDeclared();
  void FreeDropped();
  void NotePlace(const CompilePlace& place);

  CompileHost& host_;
  NameMemo names_;  // of bodies; while the top level is read, names come and go
  CompileSession* outer_;
  std::deque<Body> bodies_;  // those left to compile; a body stays where it is while it compiles
  std::unordered_map<const TamberProcedure*, Body*> bodyOf_;
  std::unordered_map<std::string, uint32_t, kel::NoCaseHash, kel::NoCaseEqual> declaredAt_;
  std::shared_ptr<StatementTables> tables_ = std::make_shared<StatementTables>();
  CompilePlace place_;
  LeftError leftError_;
  int32_t leftCode_ = 0;
  KelString leftText_;
};

/// Makes sure that a procedure can run. False, with the error set, when its body does not compile
/// or never did.
[[nodiscard]] bool EnsureCompiled(CompileHost& host, TamberProcedure& procedure);

}  // namespace tamber
