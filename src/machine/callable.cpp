#include "machine/callable.h"

#include <utility>

#include "machine/code.h"

namespace tamber {

Callable::Callable(const KelString& name, std::shared_ptr<const ScriptText> script)
    : name_(name), script_(std::move(script)) {}

Callable::~Callable() = default;

Code* Callable::SetCode(bool observed, std::unique_ptr<Code> code) {
  code_[observed] = std::move(code);
  return code_[observed].get();
}

}  // namespace tamber
