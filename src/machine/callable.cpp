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

}  // namespace tamber
