#include "functions/structdecl.h"

#include <algorithm>

#include "frontend/tokenise.h"
#include "kel/kelascii.h"
#include "kel/number.h"
#include "values/typelist.h"

namespace tamber {
namespace {

bool IsName(std::string_view word) {
  return !word.empty() && !kel::IsDigit(word[0]) &&
         std::all_of(word.begin(), word.end(), [](char c) { return kel::IsAlnum(c) || c == '_'; });
}

/// One declaration: a type word and the names that it declares.
class Declaration {
 public:
  Declaration(std::string_view text, const TypeList& types,
              std::vector<StructLayout::Member>& members)
      : types_(types), members_(members) {
    tokens_.SetLine(text);
  }

  bool Read() {
    if (Next().empty()) return true;  // nothing between two ";"
    type_ = types_.FindTypeRef(token_);
    Brackets all;
    if (!type_ || !ReadBrackets(all)) return false;
    do {
      if (!IsName(Next())) return false;
      const std::string name = token_;
      Brackets own;
      if (!ReadBrackets(own) || !Add(name, own.present ? own : all)) return false;
    } while (Next() == ",");
    return token_.empty();
  }

  /// The word at which reading stopped.
  const std::string& Fault() const { return token_; }

 private:
  struct Brackets {
    bool present = false;
    uint32_t size = 0;
  };

  const std::string& Next() {
    tokens_.GetNextToken(0, 0);
    token_ = tokens_.Token();
    return token_;
  }

  bool ReadBrackets(Brackets& brackets) {
    if (tokens_.PeekNextChar() != '[') return true;
    Next();
    brackets.present = true;
    int64_t size = 0;
    if (kel::ParseInt64Prefix(Next(), size)) {
      if (size < 0 || size > INT32_MAX) return false;
      brackets.size = static_cast<uint32_t>(size);
      Next();
    }
    return token_ == "]";
  }

  bool Add(const std::string& name, const Brackets& brackets) {
    token_ = name;
    const auto same = [&name](const auto& member) { return member.name.Equals(name); };
    if (std::any_of(members_.begin(), members_.end(), same)) return false;
    if (brackets.present && type_->IsArray()) return false;
    const TypeRef type = brackets.present ? TypeDesc::ArrayOf(type_) : type_;
    members_.push_back({Name(name), type, brackets.size});
    return true;
  }

  Tokeniser tokens_;
  const TypeList& types_;
  std::vector<StructLayout::Member>& members_;
  TypeRef type_;
  std::string token_;
};

}  // namespace

bool ParseStructMembers(std::string_view text, const TypeList& types,
                        std::vector<StructLayout::Member>& members, std::string& fault) {
  while (!text.empty()) {
    const size_t end = text.find(';');
    Declaration declaration(text.substr(0, end), types, members);
    if (!declaration.Read()) {
      fault = declaration.Fault();
      return false;
    }
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
  }
  return true;
}

}  // namespace tamber
