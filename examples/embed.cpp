#include "tamber.h"

int main() {
  TamberContext context;
  const char* script =
      "proc Greet(string who)\n"
      "  Print(\"hello, \" + who + \"\\n\")\n"
      "endproc\n";
  if (!context.CompileScriptBuffer("greeting", script, 1)) return 1;
  Stack stack;
  stack.PushString("world");
  return context.RunProcedure("Greet", &stack) ? 0 : 1;
}
