#pragma once

#include <string_view>

#include "kel/kelstring.h"

namespace kel {
class NearestName;
}
class FunctionList;
class Variable;

namespace tamber {

class Callable;
class Machine;
struct KnownName;

/// What a compiler of expressions asks of its context: what names mean, and a machine for values
/// that are wanted at once.
class ExpressionNames {
 public:
  /// The variable of a name in these scopes (bits of enum_VarListType), on loan; null when none
  /// holds it.
  virtual Variable* FindVariable(const KelString& name, uint32_t scopes) = 0;
  virtual const Variable* FindConstant(std::string_view name) = 0;
  virtual Callable* FindCallable(std::string_view name) = 0;
  virtual FunctionList& Functions() = 0;
  /// All that the name means, for who has looked it up already and remembers; null: ask for each.
  virtual const KnownName* Remembered(std::string_view) { return nullptr; }
  /// Offers the names that it knows, for one that it does not: of what can be called, or of all
  /// that has a value. Nothing when nobody will be told.
  virtual void OfferNames(kel::NearestName& nearest, bool callable) = 0;
  virtual Machine& Evaluator() = 0;

 protected:
  ExpressionNames() = default;
  ~ExpressionNames() = default;
};

}  // namespace tamber
