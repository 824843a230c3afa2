#pragma once

#include <cstdint>
#include <string_view>

#include "kel/kelstring.h"
#include "values/typedesc.h"

class Tokeniser;

namespace tamber {

class CompileHost;

/// A declared name with its type.
struct DeclaredName {
  KelString name;  ///< may be empty or no name at all: whoever declares it checks it
  TypeRef type;
  uint32_t arraySize = 0;  ///< elements that the declaration gives an array
};

/// Reads `type name, name ...`, the form that all declarations share.
///
/// Brackets make an array: behind the type word for all names, behind a name for that one. A
/// constant in them is the number of elements that the array starts with.
/// Operations give 0 or an error code, for which ErrorText() is the text.
class DeclarationReader {
 public:
  DeclarationReader(CompileHost& host, Tokeniser& tokeniser) : host_(host), tokeniser_(tokeniser) {}

  /// Takes `word`, which has been read, as the type, with the brackets that follow.
  [[nodiscard]] int32_t ReadType(std::string_view word);
  /// Reads the next name with its brackets.
  [[nodiscard]] int32_t ReadName(DeclaredName& name);
  /// Reads what stands behind a name: "," (`more` is then set) or the end of the line.
  [[nodiscard]] int32_t ReadSeparator(bool& more);

  /// The type that was read, and the elements that the brackets behind its word ask for.
  const TypeRef& Type() const { return type_; }
  uint32_t ArraySize() const { return arraySize_; }

  /// The type word of a name that was read, with "[]" for an array.
  KelString TypeWord(const DeclaredName& name) const;
  const KelString& ErrorText() const { return errorText_; }

 private:
  int32_t Fail(int32_t code, std::string_view text);
  int32_t ReadBrackets(uint32_t& size);
  int32_t ReadSize(uint32_t& size);
  int32_t FindArrayType(TypeRef& type);

  CompileHost& host_;
  Tokeniser& tokeniser_;
  KelString word_;
  TypeRef type_;
  uint32_t arraySize_ = 0;
  bool bracketed_ = false;  // arrays by the type word
  KelString errorText_;
};

}  // namespace tamber
