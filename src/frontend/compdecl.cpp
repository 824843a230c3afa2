#include "frontend/compdecl.h"

#include "frontend/compilehost.h"
#include "frontend/declread.h"
#include "frontend/stmtcomp.h"
#include "statements/statdecl.h"
#include "values/errcodes.h"

namespace tamber {

namespace {

void Declare(StatementCompiler& compiler, const KelString& typeWord, const DeclaredName& declared) {
  const Name& name = compiler.Tables().Intern(declared.name);
  Local local;
  local.name = name;
  local.type = declared.type;
  local.arraySize = declared.arraySize;
  const uint32_t slot = compiler.Procedure().Locals().Add(std::move(local));
  compiler.Names().AddLocal(declared.name, static_cast<int32_t>(slot));
  compiler.Append<StatementDeclare>(slot, compiler.Tables().Intern(typeWord),
                                    compiler.Procedure().Locals().At(slot).name);
}

}  // namespace

bool CompileLocals(StatementCompiler& compiler) {
  const KelString word(compiler.Tokens().Token());
  DeclarationReader reader(compiler.Host(), compiler.Tokens());
  int32_t error = reader.ReadType(word);
  for (bool more = true; error == ERR_SUCCESS && more;) {
    DeclaredName declared;
    error = reader.ReadName(declared);
    if (error != ERR_SUCCESS) break;
    if (!compiler.CheckLocalName(declared.name)) return false;
    Declare(compiler, reader.TypeWord(declared), declared);
    error = reader.ReadSeparator(more);
  }
  if (error == ERR_SUCCESS) return true;
  compiler.Fail(error, reader.ErrorText());
  if (error == ERR_VARNOCOMMA && reader.ErrorText() == "=") {
    compiler.Host().Run().notes.Hint(
        "a local declaration takes no value; assign it in a line of its own");
  }
  return false;
}

}  // namespace tamber
