// Any text as a prototype, a structure, a type and an error code of a host. What was accepted reads
// the same when it is written and registered again.
#include "harness.h"

namespace {

/// Never called.
int32_t Nothing(FunctionCallInfo*) { return 1; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const size_t split = text.find('\n');
  const std::string name = text.substr(0, split);
  const std::string members = split == std::string::npos ? "" : text.substr(split + 1);
  fuzz::WithoutLeak([&] {
    const std::unique_ptr<TamberContext> context = fuzz::MakeContext(true);
    context->RegisterStructure(name, members, nullptr);
    context->RegisterObjectType(name);
    context->RegisterErrorCode(static_cast<int32_t>(size), name, members);
    const uint32_t index =
        context->RegisterFunction(name, &Nothing, FunctionList::FUNCTYPE_NORMAL, false);
    if (index == 0) return;
    const KelString prototype = context->PrototypeText(index);
    if (context->RegisterFunction(prototype, &Nothing, FunctionList::FUNCTYPE_NORMAL, false) !=
        index)
      __builtin_trap();
  });
  return 0;
}
