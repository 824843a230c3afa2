#include <tamber/tamber.h>

#include <iostream>
// Found under both names, as one file.
#include <tamber.h>

template <class... Arrays>
bool Grow() {
  const auto grows = [](auto array) {
    array->SetArraySize(2);
    const bool grown = array->GetElementCount() == 2;
    Variable::Delete(array);
    return grown;
  };
  return (grows(new Arrays("a", 0)) && ...);
}

int main() {
  TamberContext context;
  RegisterFunction(context, "int Twice (int N)", [](int32_t n) { return 2 * n; });
  if (!context.CompileScriptBuffer("consumer", "int Run(int n)\n  return Twice(n) + 1\nendproc\n",
                                   1))
    return 1;
  const auto result = Call<int32_t>(context, "Run", 20);
  if (!result) return 1;
  VarString name("name", 0);
  VarString other("other", 0);
  if (!(name == other) || name < other) return 1;  // both are empty
  if (!Grow<VarBooleanArray, VarCharArray, VarIntegerArray, VarFloatArray, VarDoubleArray,
            VarStringArray, VarEStringArray, VarHandleArray>())
    return 1;
  std::cout << result.Value() << '\n';
  return 0;
}
