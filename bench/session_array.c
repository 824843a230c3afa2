/* Saves session arrays of a hundred times as many elements as the argument says, and loads them. */
#include <stdio.h>
#include <stdlib.h>

#include "tamber_c.h"

static const char kScript[] =
    "session int[] numbers\n"
    "session double[] reals\n"
    "int Fill(int count)\n"
    " numbers += count\n"
    " reals += count\n"
    " numbers[7] = 5\n"
    " reals[count] = 1.5\n"
    " return count\n"
    "endproc\n"
    "int IsThere(int count)\n"
    " return numbers[7] == 5 && reals[count] == 1.5 && ArrayGetSize(numbers) == count\n"
    "endproc\n";

/* What the procedure returns for the number, in a new context of the session; below 0: it failed. */
static int32_t Request(const char* procedure, int32_t number) {
  int32_t result = -1;
  tamber_context* context = tamber_new();
  if (tamber_set_session(context, 7) != TAMBER_OK) return -1;
  if (tamber_compile_text(context, "arrays", kScript, sizeof kScript - 1) != TAMBER_OK) return -1;
  if (tamber_push_int(context, number) != TAMBER_OK) return -1;
  if (tamber_run(context, procedure) != TAMBER_OK) return -1;
  if (tamber_result_int(context, &result) != TAMBER_OK) return -1;
  if (tamber_save_session(context) != TAMBER_OK) return -1;
  tamber_free(context);
  return result;
}

int main(int count, char** arguments) {
  const int32_t elements = 100 * (count > 1 ? atoi(arguments[1]) : 1);
  remove("TamberSessions");
  return Request("Fill", elements) == elements && Request("IsThere", elements) == 1 ? 0 : 1;
}
