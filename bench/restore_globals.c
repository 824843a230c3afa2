/* Restores 500 globals that nobody has changed, as often as the argument says. */
#include <stdio.h>
#include <stdlib.h>

#include "tamber_c.h"

enum { kGlobals = 500 };

int main(int count, char** arguments) {
  static char text[kGlobals * 64];
  size_t length = 0;
  for (int i = 0; i < kGlobals; i += 2)
    length += (size_t)sprintf(text + length, "int n%d = %d\nstring s%d = \"text\"\n", i, i, i + 1);
  tamber_context* context = tamber_new();
  int repetitions = count > 1 ? atoi(arguments[1]) : 1;
  if (tamber_compile_text(context, "globals", text, length) != TAMBER_OK) return 1;
  if (tamber_keep_globals(context) != TAMBER_OK) return 1;
  for (int i = 0; i < repetitions; ++i)
    if (tamber_restore_globals(context) != TAMBER_OK) return 1;
  tamber_free(context);
  return 0;
}
