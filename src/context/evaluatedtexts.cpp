#include "context/evaluatedtexts.h"

#include <algorithm>

#include "context/contextstate.h"
#include "values/cellops.h"

namespace tamber {
namespace {

constexpr size_t kMaxTexts = 128;
constexpr size_t kLongestText = 1000;

/// Whether locals, too, are what they were.
bool MeansTheSame(ContextState& state, const EvaluatedText& text) {
  return std::all_of(text.variables.begin(), text.variables.end(), [&](const VariableSeen& seen) {
    const Variable* variable = state.context.GetVariable(seen.name, seen.scopes);
    return variable != nullptr ? TypeOf(*variable).Get() == seen.type.Get() : !seen.type;
  });
}

}  // namespace

std::shared_ptr<const EvaluatedText> EvaluatedTexts::Find(ContextState& state,
                                                          std::string_view text, Kind target) {
  const NameView now(state);
  if (view_ != now) {
    texts_.clear();
    view_ = now;
  }
  const auto found = texts_.find(text);
  const bool fits = found != texts_.end() && found->second->target == target &&
                    MeansTheSame(state, *found->second);
  return fits ? found->second : nullptr;
}

void EvaluatedTexts::Add(std::string_view text, std::shared_ptr<const EvaluatedText> evaluated) {
  if (text.size() > kLongestText) return;
  if (texts_.size() >= kMaxTexts) texts_.clear();
  texts_.insert_or_assign(std::string(text), std::move(evaluated));
}

}  // namespace tamber
