// Any text as an expression: compiled, dumped and evaluated beside variables of every kind.
#include "declarations.h"
#include "expr/exprcomp.h"
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  static const auto program = fuzz::MakeProgram(*fuzz::MakeContext(false), fuzz::kDeclarations);
  fuzz::WithoutLeak([&] {
    TamberContext context(program);
    const fuzz::Budget budget(context);
    ExpressionCompiler compiler(&context);
    if (!compiler.CompileExpression(text.c_str(), "")) return;
    KelString dump;
    compiler.Dump(dump);
    Stack stack;
    const bool done = compiler.EvaluateExpression(&stack) != 0;
    if (stack.GetSize() != (done ? 1u : 0u)) __builtin_trap();
  });
  return 0;
}
