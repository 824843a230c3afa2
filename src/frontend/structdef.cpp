#include "frontend/structdef.h"

#include <new>
#include <unordered_set>

#include "expr/exprnotes.h"
#include "frontend/compilehost.h"
#include "frontend/declcheck.h"
#include "frontend/declread.h"
#include "frontend/scrline.h"
#include "frontend/stmtcomp.h"
#include "kel/kelascii.h"
#include "kel/nearestname.h"
#include "values/cellops.h"
#include "values/errcodes.h"

namespace tamber {

namespace {

class StructReader {
 public:
  StructReader(CompileHost& host, ScriptLine& script)
      : host_(host),
        script_(script),
        tokeniser_(script.GetTokeniser()),
        line_(script.GetStatementLine()) {}

  int32_t Read(StructFlags flags);

 private:
  int32_t ReadMembers();
  int32_t DefineStructMember();
  int32_t AddMember(const DeclaredName& declared);
  int32_t Register(StructFlags flags);
  void NoteNoEnd();
  int32_t Fail(int32_t code, std::string_view text);

  CompileHost& host_;
  ScriptLine& script_;
  Tokeniser& tokeniser_;
  uint32_t line_;
  KelString name_;
  std::vector<StructLayout::Member> members_;
  std::unordered_set<std::string, kel::NoCaseHash, kel::NoCaseEqual> names_;
};

int32_t StructReader::Fail(int32_t code, std::string_view text) {
  host_.SetError(code, KelString(text));
  return code;
}

int32_t StructReader::Read(StructFlags flags) {
  tokeniser_.ReadToken();
  if (tokeniser_.GetLastError() != 0) return Fail(tokeniser_.GetLastError(), "");
  name_ = KelString(tokeniser_.Token());
  if (name_.IsEmpty()) return Fail(kErrStructBlock, "");
  tokeniser_.ReadToken();
  if (tokeniser_.GetTokenLength() != 0) return Fail(kErrStructBlock, tokeniser_.Token());
  if (!CheckDeclaredName(host_, name_)) return host_.Error();
  const int32_t error = ReadMembers();
  return error == ERR_SUCCESS ? Register(flags) : error;
}

int32_t StructReader::ReadMembers() {
  while (script_.ReadLogicalLine()) {
    tokeniser_.ReadToken();
    if (tokeniser_.GetLastError() != 0) return Fail(tokeniser_.GetLastError(), "");
    if (tokeniser_.GetTokenLength() == 0) continue;
    if (tokeniser_.TokenIs("endstruct")) return ERR_SUCCESS;
    if (tokeniser_.TokenIs("endproc")) break;
    if (tokeniser_.Token() == "/*") {
      if (!script_.SkipBlockComment()) return Fail(ERR_SCRNOMORELINES, kOpenComment);
    } else if (const int32_t error = DefineStructMember()) {
      return error;
    }
  }
  Fail(kErrStructBlock, name_);
  NoteNoEnd();
  return kErrStructBlock;
}

int32_t StructReader::DefineStructMember() {
  const KelString word(tokeniser_.Token());
  DeclarationReader reader(host_, tokeniser_);
  int32_t error = reader.ReadType(word);
  if (error == ERR_VARBADTYPE) {
    Fail(kErrStructMember, reader.ErrorText());
    kel::NearestName nearest(word.View());
    OfferTypes(host_.Types(), nearest);
    NoteNearest(nearest, host_.Run().notes);
    if (nearest.Found().empty()) NoteNoEnd();
    return kErrStructMember;
  }
  for (bool more = true; error == ERR_SUCCESS && more;) {
    DeclaredName declared;
    error = reader.ReadName(declared);
    if (error != ERR_SUCCESS) break;
    if (const int32_t refused = AddMember(declared)) return refused;
    error = reader.ReadSeparator(more);
  }
  return error == ERR_SUCCESS ? error : Fail(error, reader.ErrorText());
}

int32_t StructReader::AddMember(const DeclaredName& declared) {
  const std::string_view name = declared.name.View();
  const bool isName = !name.empty() && (kel::IsAlnum(name[0]) || name[0] == '_');
  if (!isName || !names_.emplace(name).second) {
    Fail(kErrStructMember, name);
    if (isName) host_.Run().notes.Note("struct " + name_.Str() + " has a member of this name");
    return kErrStructMember;
  }
  members_.push_back({Name(name), declared.type, declared.arraySize});
  return ERR_SUCCESS;
}

void StructReader::NoteNoEnd() {
  host_.Run().notes.Note("struct " + name_.Str() + " begins in line " + std::to_string(line_) +
                         "; up to \"endstruct\" it has members of types that are declared above");
}

int32_t StructReader::Register(StructFlags flags) {
  try {
    const Name name(name_);
    const TypeRef type = TypeDesc::StructOf(StructLayout::Make(name, std::move(members_)));
    host_.Types().AddType(name_, MakeVariable(type, Name()), flags);
    host_.Types().AddType(name_ + "[]", MakeVariable(TypeDesc::ArrayOf(type), Name()), flags);
    return ERR_SUCCESS;
  } catch (const std::bad_alloc&) {
    // A structure without its array would be half a type.
    const uint32_t half = host_.Types().FindType(name_);
    if (half != TypeList::kNotFound) host_.Types().DeleteType(half);
    // Structures nested too deep, or with too many members in all; here there is a line to show.
    return Fail(ERR_NOMEMORY, name_);
  }
}

}  // namespace

int32_t DefineStructure(CompileHost& host, ScriptLine& script, StructFlags flags) {
  return StructReader(host, script).Read(flags);
}

int32_t DefineStructureText(CompileHost& host, const KelString& name, const KelString& members,
                            StructFlags flags) {
  KelString lines(members);
  lines.Replace(";", "\n");
  KelString text;
  text.Printf("struct %S\n%S\nendstruct\n", name, lines);
  const auto source = ScriptText::FromBuffer(name, text.Str());
  if (!source) {
    host.SetError(kErrStructBlock, name);
    return kErrStructBlock;
  }
  ScriptLine script(source);
  script.ReadLogicalLine();
  script.GetTokeniser().ReadToken();
  return DefineStructure(host, script, flags);
}

}  // namespace tamber
