// Any text as a script: compiled and run until its budget is spent. An error leaves the context
// usable, so main runs twice; then comes all of it once more, with the session that the reset has
// saved. A script finds itself in the file self.tam.
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  fuzz::WithoutLeak([&] {
    const std::unique_ptr<TamberContext> context = fuzz::MakeContext(size % 2 == 0);
    const fuzz::Budget budget(*context);
    if (text.find("self.tam") != std::string::npos) std::ofstream("self.tam") << text;
    const bool hasSession = kel::Lowered(text).find("session") != std::string::npos;
    if (hasSession) context->SetSessionId(1);
    for (int again = 0; again < (hasSession ? 2 : 1); ++again) {
      if (context->CompileScriptBuffer("fuzzed", text, 1)) {
        for (int run = 0; run < 2; ++run) {
          Stack stack;
          context->RunProcedure("main", &stack);
        }
      }
      context->ResetContext();
    }
  });
  return 0;
}
