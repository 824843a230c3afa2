#include "frontend/declread.h"

#include "expr/exprparser.h"
#include "frontend/compilehost.h"
#include "text/tokenise.h"
#include "values/errcodes.h"

namespace tamber {

int32_t DeclarationReader::Fail(int32_t code, std::string_view text) {
  errorText_ = KelString(text);
  return code;
}

int32_t DeclarationReader::ReadType(std::string_view word) {
  word_ = KelString(word);
  type_ = host_.Types().FindTypeRef(word);
  arraySize_ = 0;
  if (!type_) return Fail(ERR_VARBADTYPE, word);
  bracketed_ = tokeniser_.PeekNextChar() == '[';
  if (!bracketed_) return ERR_SUCCESS;
  const int32_t error = FindArrayType(type_);
  return error != ERR_SUCCESS ? error : ReadBrackets(arraySize_);
}

int32_t DeclarationReader::FindArrayType(TypeRef& type) {
  const KelString word = word_ + "[]";
  type = host_.Types().FindTypeRef(word);
  return type ? ERR_SUCCESS : Fail(ERR_VARBADTYPE, word);
}

int32_t DeclarationReader::ReadName(DeclaredName& name) {
  tokeniser_.ReadToken();
  if (tokeniser_.GetLastError() != 0) return Fail(tokeniser_.GetLastError(), "");
  name = {KelString(tokeniser_.Token()), type_, arraySize_};
  if (tokeniser_.PeekNextChar() != '[') return ERR_SUCCESS;
  // There are no arrays of arrays.
  if (bracketed_) return Fail(ERR_VARNOCOMMA, "[");
  const int32_t error = FindArrayType(name.type);
  return error != ERR_SUCCESS ? error : ReadBrackets(name.arraySize);
}

int32_t DeclarationReader::ReadBrackets(uint32_t& size) {
  tokeniser_.ReadToken();  // "["
  tokeniser_.ReadToken();
  if (tokeniser_.Token() == "]") return ERR_SUCCESS;
  const int32_t error = ReadSize(size);
  if (error != ERR_SUCCESS) return error;
  tokeniser_.ReadToken();
  return tokeniser_.Token() == "]" ? ERR_SUCCESS : Fail(ERR_VARNOCOMMA, tokeniser_.Token());
}

int32_t DeclarationReader::ReadSize(uint32_t& size) {
  const std::string_view token = tokeniser_.Token();
  int32_t value = -1;
  if (!ReadIntegerLiteral(token, value)) {
    const Variable* const constant = host_.FindVariable(KelString(token), VARLIST_CONSTANT);
    const bool isNumber = constant != nullptr && constant->GetTypeId() == Variable::Integer;
    value = isNumber ? constant->GetIntegerValue() : -1;
  }
  if (value < 0) return Fail(ERR_VARNOCOMMA, token);
  size = static_cast<uint32_t>(value);
  return ERR_SUCCESS;
}

KelString DeclarationReader::TypeWord(const DeclaredName& name) const {
  // "array" is an array without brackets.
  const bool plain = !bracketed_ && name.type.Get() == type_.Get();
  return plain ? word_ : word_ + "[]";
}

int32_t DeclarationReader::ReadSeparator(bool& more) {
  tokeniser_.ReadToken();
  if (tokeniser_.GetLastError() != 0) return Fail(tokeniser_.GetLastError(), "");
  more = tokeniser_.Token() == ",";
  const bool end = tokeniser_.GetTokenLength() == 0;
  return more || end ? ERR_SUCCESS : Fail(ERR_VARNOCOMMA, tokeniser_.Token());
}

}  // namespace tamber
