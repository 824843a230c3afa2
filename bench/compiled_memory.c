/* Prints the bytes that a context holds for the script that is its argument, and those that a
 * program made of it holds when the context is gone. */
#include <malloc.h>
#include <stdio.h>

#include "tamber_c.h"

static size_t InUse(void) {
  const struct mallinfo2 all = mallinfo2();
  return all.uordblks + all.hblkhd;
}

/* 0 when it fails. What stays is not freed: the process ends soon. */
static int Measure(const char* path, size_t* compiled, size_t* program) {
  const size_t before = InUse();
  tamber_context* const context = tamber_new();
  if (tamber_compile_file(context, path) != TAMBER_OK) return 0;
  *compiled = InUse() - before;
  tamber_program* made = NULL;
  if (tamber_freeze(context, &made) != TAMBER_OK) return 0;
  tamber_free(context);
  *program = InUse() - before;
  return 1;
}

int main(int count, char** arguments) {
  size_t empty[2];
  size_t full[2];
  /* Twice, so that what is made once in a process is there. */
  const int measured = count == 3 && Measure(arguments[1], &empty[0], &empty[1]) &&
                       Measure(arguments[1], &empty[0], &empty[1]) &&
                       Measure(arguments[2], &full[0], &full[1]);
  if (!measured) return 1;
  printf("%zu %zu\n", full[0] - empty[0], full[1] - empty[1]);
  return 0;
}
