#include "machine/callable.h"

#include <utility>

#include "machine/boundcode.h"

namespace tamber {

Callable::Callable(const KelString& name, std::shared_ptr<const ScriptText> script)
    : name_(name), script_(std::move(script)) {}

Callable::~Callable() = default;

const BoundCode* Callable::SetCode(bool observed, std::unique_ptr<const BoundCode> code) {
  code_[observed] = std::move(code);
  return code_[observed].get();
}

void Callable::Freeze(uint32_t number, std::unique_ptr<const Code> code) {
  frozenNumber_ = number;
  frozenCode_ = std::move(code);
  for (auto& own : code_) own.reset();
  if (frozenScript_ != nullptr) return;
  frozenScript_ = std::move(script_);
  script_ = std::shared_ptr<const ScriptText>(std::shared_ptr<void>(), frozenScript_.get());
}

}  // namespace tamber
