// Any text as a script: compiled and run until its budget is spent. An error leaves the context
// usable, so main runs twice.
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (!fuzz::IsHarmless(text)) return 0;
  fuzz::QuietContext context;
  const fuzz::Budget budget(context);
  if (!context.CompileScriptBuffer("fuzzed", text, 1)) return 0;
  for (int run = 0; run < 2; ++run) {
    Stack stack;
    context.RunProcedure("main", &stack);
  }
  context.ResetContext();
  return 0;
}
