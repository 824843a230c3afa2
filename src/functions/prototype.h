#pragma once

#include <memory>
#include <string_view>

#include "functions/funclist.h"
#include "values/varholder.h"

class TypeList;

namespace tamber {

/// What a prototype declares.
struct Prototype {
  KelString name;
  VarHolder returnValue;
  std::unique_ptr<VarList> parameters;
};

/// Reads a prototype such as "int ArrayFind (array Var, int Value, int StartIndex)". Brackets of an
/// array parameter follow its name, those of the return type follow the type word.
///
/// False when it is refused: with `message` set for an unknown type word (error 20208), without for
/// anything else that is malformed.
[[nodiscard]] bool ParsePrototype(std::string_view prototype, const TypeList& types,
                                  FunctionList::FuncType_e type, Prototype& out,
                                  KelString& message);

}  // namespace tamber
