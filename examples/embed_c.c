#include <stdio.h>
#include <tamber_c.h>

static int Area(tamber_call* call, void* user) {
  int32_t w = 0;
  double h = 0;
  (void)user;
  tamber_arg_int(call, 0, &w);
  tamber_arg_double(call, 1, &h);
  return tamber_return_double(call, w * h);
}

int main(void) {
  static const char script[] =
      "double Price(int w, double h)\n"
      "  Print(\"measuring\\n\")\n"
      "  return Area(w, h) * 2.5\n"
      "endproc\n";
  tamber_context* context = tamber_new();
  double price = 0;
  int status = tamber_register(context, "double Area (int W, double H)", Area, NULL);
  if (status == TAMBER_OK)
    status = tamber_compile_text(context, "prices", script, sizeof script - 1);
  tamber_push_int(context, 4);
  tamber_push_double(context, 1.5);
  if (status == TAMBER_OK) status = tamber_run(context, "Price");
  if (status == TAMBER_OK) status = tamber_result_double(context, &price);
  if (status == TAMBER_OK) {
    printf("%.2f\n", price);
  } else {
    tamber_error error;
    if (tamber_get_error(context, &error) == TAMBER_OK)
      fprintf(stderr, "%s:%u: %s: %s\n", error.file, (unsigned)error.line, error.name,
              error.detail);
  }
  tamber_free(context);
  return status;
}
