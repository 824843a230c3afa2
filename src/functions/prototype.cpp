#include "functions/prototype.h"

#include "kel/kelascii.h"
#include "text/tokenise.h"
#include "values/cellops.h"
#include "values/typelist.h"
#include "values/varholder.h"
#include "values/varlist.h"

namespace tamber {

namespace {

/// Reads one prototype, token by token.
class Reader {
 public:
  Reader(std::string_view text, const TypeList& types, KelString& message)
      : types_(types), message_(message) {
    tokens_.SetLine(text);
  }

  bool Read(FunctionList::FuncType_e type, Prototype& out) {
    std::string word = Next();
    ReadBrackets(word);
    out.returnValue.reset(NewVariable(word, "", "Unknown return value data type '%S'"));
    if (!out.returnValue) return false;
    out.name = KelString(Next());
    if (Next() != "(") return false;
    out.parameters = std::make_unique<VarList>();
    if (type == FunctionList::FUNCTYPE_HIDDEN && !AddParameter("string", "", *out.parameters)) {
      return false;
    }
    return ReadParameters(*out.parameters);
  }

 private:
  std::string Next() { return tokens_.GetNextToken(0, 0); }

  bool ReadParameters(VarList& parameters) {
    std::string token = Next();
    while (token.substr(0, 1) != ")") {
      std::string word = kel::Lowered(token);
      std::string name;
      const char next = tokens_.PeekNextChar();
      if (next != '[' && next != ',' && next != ')') name = Next();
      ReadBrackets(word);
      if (!AddParameter(word, name, parameters)) return false;
      token = Next();
      if (token == ",") {
        token = Next();
      } else if (token.substr(0, 1) != ")") {
        return false;
      }
    }
    return true;
  }

  /// Appends "[]" to the type word when that follows.
  void ReadBrackets(std::string& word) {
    if (tokens_.PeekNextChar() != '[') return;
    Next();
    if (tokens_.PeekNextChar() != ']') return;
    Next();
    word += "[]";
  }

  bool AddParameter(const std::string& word, const std::string& name, VarList& parameters) {
    VarHolder parameter(NewVariable(word, name, "Unknown function parameter type '%S'"));
    if (parameter == nullptr) return false;
    AddOwned(parameters, std::move(parameter));
    return true;
  }

  Variable* NewVariable(const std::string& word, const std::string& name,
                        std::string_view refusal) {
    const TypeRef type = types_.FindTypeRef(word);
    if (type) return MakeVariable(type, Name(name));
    message_.Printf(refusal, word);
    return nullptr;
  }

  Tokeniser tokens_;
  const TypeList& types_;
  KelString& message_;
};

}  // namespace

bool ParsePrototype(std::string_view prototype, const TypeList& types,
                    FunctionList::FuncType_e type, Prototype& out, KelString& message) {
  message.Clear();
  return Reader(prototype, types, message).Read(type, out);
}

}  // namespace tamber
