// Encrypted scripts that were changed, cut or lengthened, and any bytes behind their mark: they do
// not open, unless they are what was written.
#include <fuzzer/FuzzedDataProvider.h>

#include <fstream>

#include "harness.h"
#include "kel/cipher.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr const char* kKey = "key";
  static const std::string sealed = kel::SealText("proc main()\nendproc\n", kKey);
  FuzzedDataProvider input(data, size);
  std::string changed = sealed;
  for (size_t count = input.ConsumeIntegralInRange<size_t>(0, 8); count > 0; --count) {
    const size_t at = input.ConsumeIntegralInRange<size_t>(0, sealed.size() - 1);
    changed[at] = static_cast<char>(changed[at] ^ input.ConsumeIntegral<char>());
  }
  changed.resize(input.ConsumeIntegralInRange<size_t>(0, sealed.size()));
  changed += input.ConsumeRemainingBytesAsString();
  fuzz::WithoutLeak([&] {
    std::ofstream("script.tam", std::ios::binary) << changed;
    const std::unique_ptr<TamberContext> context = fuzz::MakeContext(true);
    context->SetScriptKey(kKey);
    const bool opened = context->CompileScriptFile("script.tam") != 0;
    if (kel::IsSealed(changed) && opened != (changed == sealed)) __builtin_trap();
  });
  return 0;
}
