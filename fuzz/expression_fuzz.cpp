// Any text as an expression: compiled, dumped and evaluated beside variables of every kind.
#include "expr/exprcomp.h"
#include "harness.h"

namespace {

constexpr const char* kDeclarations =
    "struct Point\nint X, Y\nstring Name\nint[] List\nendstruct\n"
    "int i = 7, z\nbool b = TRUE\nchar c = 'c'\nfloat f = 1.5\ndouble d = 2.5\nstring s = "
    "\"text\"\n"
    "estring e = \"secret\"\nint[3] a\nstring[2] t\nPoint p\nPoint[2] q\narray g\n"
    "int Twice(int &n)\nn = n * 2\nreturn n\nendproc\n"
    "string Grow(string x)\ns = s + x\nreturn s\nendproc\n"
    "int[] Make(int n)\nint[] r\nr <<= n\nreturn r\nendproc\n"
    "Point Get(Point &x)\nx.X = x.X + 1\nreturn x\nendproc\n";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  static const std::shared_ptr<const TamberProgram> program = [] {
    const std::unique_ptr<TamberContext> context = fuzz::MakeContext(false);
    if (!context->CompileScriptBuffer("declarations", kDeclarations, 1)) __builtin_trap();
    return context->Freeze();
  }();
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
