#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "context/nameview.h"
#include "machine/boundcode.h"
#include "values/typedesc.h"

namespace tamber {

/// A variable that compiling asked for, and its type; null when there was none.
struct VariableSeen {
  KelString name;
  uint32_t scopes;
  TypeRef type;
};

/// An expression that a script has evaluated from a string.
struct EvaluatedText {
  Kind target;  ///< what its value was wanted for
  uint32_t offset;
  std::shared_ptr<const BoundCode> code;
  std::vector<VariableSeen> variables;
};

/// The code of expressions that were evaluated lately, for texts that come again.
class EvaluatedTexts {
 public:
  /// Null when the text is not known, or would be compiled to something else now.
  std::shared_ptr<const EvaluatedText> Find(ContextState& state, std::string_view text,
                                            Kind target);
  void Add(std::string_view text, std::shared_ptr<const EvaluatedText> evaluated);
  void Clear() { texts_.clear(); }

 private:
  struct Hash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
  };

  std::unordered_map<std::string, std::shared_ptr<const EvaluatedText>, Hash, std::equal_to<>>
      texts_;
  std::optional<NameView> view_;  ///< that all of them were compiled in
};

}  // namespace tamber
