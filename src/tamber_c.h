#ifndef TAMBER_C_H
#define TAMBER_C_H

/**
 * \file
 * Tamber for programs in C, and for languages that call C.
 *
 * Functions return TAMBER_OK or say what was wrong. Contexts and calls are numbers in the shape of
 * pointers: null, and one that has been freed or has ended, is refused and never followed. A
 * context is used by one thread at a time. Texts are bytes with a length and may hold NULs; texts
 * that are handed out end with a NUL as well, belong to the context, and are good until the next
 * function is called with it.
 */

#include <stddef.h>
#include <stdint.h>

#include "kel/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tamber_context tamber_context;
/** A running call of a function of the host; ends when that function returns. */
typedef struct tamber_call tamber_call;

enum {
  TAMBER_OK = 0,
  TAMBER_FAILED = 1,       /**< the script has an error: see tamber_get_error */
  TAMBER_BAD_HANDLE = 2,   /**< the context or call is null or no longer there */
  TAMBER_BAD_ARGUMENT = 3, /**< a null pointer, or a position that is not there */
  TAMBER_NOT_FOUND = 4,    /**< no variable of that name, or no result */
  TAMBER_WRONG_TYPE = 5,   /**< the value is not of that type */
  TAMBER_NO_MEMORY = 6
};

/** What a value is. */
enum {
  TAMBER_NOTHING = 0,
  TAMBER_BOOL = 2,
  TAMBER_CHAR = 3,
  TAMBER_INT = 4,
  TAMBER_FLOAT = 5,
  TAMBER_DOUBLE = 6,
  TAMBER_TEXT = 7,
  TAMBER_OTHER = 8 /**< a handle, a structure or an array: not for this interface */
};

/** The last error; `code` is 0 when there was none. The texts are never null. */
typedef struct tamber_error {
  int32_t code;
  uint32_t line;   /**< where the statement begins, from 1; 0 when no line was read */
  uint32_t column; /**< byte of source_line at which what is wrong begins, from 1; or 0 */
  const char* name;
  const char* text;
  const char* detail;
  const char* file;
  const char* source_line; /**< of a statement of several lines the one that is meant */
  const char* procedure;
} tamber_error;

/** Takes what scripts print. */
typedef void (*tamber_output)(const char* text, size_t length, void* user);
/** A function of the host that scripts call. Anything but TAMBER_OK ends the script's run. */
typedef int (*tamber_function)(tamber_call* call, void* user);

/** "MAJOR.MINOR.PATCH" of the library; never freed. */
TAMBER_API const char* tamber_version(void);

/** A new context; null without memory. */
TAMBER_API tamber_context* tamber_new(void);
/** Ends a context; one that is running is gone when its run has ended. */
TAMBER_API int tamber_free(tamber_context* context);
/** The configuration file; at first "./tamber.ini". */
TAMBER_API int tamber_set_ini(tamber_context* context, const char* path);
/** Where the output of scripts goes; a null function means standard output. */
TAMBER_API int tamber_set_output(tamber_context* context, tamber_output output, void* user);

TAMBER_API int tamber_compile_file(tamber_context* context, const char* path);
/** `name` is what errors call the text. */
TAMBER_API int tamber_compile_text(tamber_context* context, const char* name, const char* text,
                                   size_t length);

/* Arguments of the next run, the first one first. */
TAMBER_API int tamber_push_bool(tamber_context* context, int value);
TAMBER_API int tamber_push_int(tamber_context* context, int32_t value);
TAMBER_API int tamber_push_double(tamber_context* context, double value);
TAMBER_API int tamber_push_text(tamber_context* context, const char* text, size_t length);
/** Runs a procedure with the arguments that were pushed. They are gone afterwards, also when the
 * procedure cannot take them. */
TAMBER_API int tamber_run(tamber_context* context, const char* procedure);

/* What the last run gave. Numbers are converted from any number, texts from nothing else. */
TAMBER_API int tamber_result_type(tamber_context* context, int* type);
TAMBER_API int tamber_result_int(tamber_context* context, int32_t* value);
TAMBER_API int tamber_result_double(tamber_context* context, double* value);
TAMBER_API int tamber_result_text(tamber_context* context, const char** text, size_t* length);

/* Global variables and constants; constants cannot be set. */
TAMBER_API int tamber_get_type(tamber_context* context, const char* name, int* type);
TAMBER_API int tamber_get_int(tamber_context* context, const char* name, int32_t* value);
TAMBER_API int tamber_get_double(tamber_context* context, const char* name, double* value);
TAMBER_API int tamber_get_text(tamber_context* context, const char* name, const char** text,
                               size_t* length);
TAMBER_API int tamber_set_int(tamber_context* context, const char* name, int32_t value);
TAMBER_API int tamber_set_double(tamber_context* context, const char* name, double value);
TAMBER_API int tamber_set_text(tamber_context* context, const char* name, const char* text,
                               size_t length);

/** Makes a function of the host a built-in under a prototype in the language's own syntax, such as
 * "double Area (int W, double H)". Parameters and result are scalars and texts. A function that
 * returns nothing gives 0 or "". */
TAMBER_API int tamber_register(tamber_context* context, const char* prototype,
                               tamber_function function, void* user);
/* The arguments of a call, counted from 0. A text is good until the function returns. */
TAMBER_API int tamber_arg_count(tamber_call* call, uint32_t* count);
TAMBER_API int tamber_arg_int(tamber_call* call, uint32_t position, int32_t* value);
TAMBER_API int tamber_arg_double(tamber_call* call, uint32_t position, double* value);
TAMBER_API int tamber_arg_text(tamber_call* call, uint32_t position, const char** text,
                               size_t* length);
TAMBER_API int tamber_return_int(tamber_call* call, int32_t value);
TAMBER_API int tamber_return_double(tamber_call* call, double value);
TAMBER_API int tamber_return_text(tamber_call* call, const char* text, size_t length);
/** Raises an error of the language; below 20000 the script may handle it. The function still
 * returns TAMBER_OK. */
TAMBER_API int tamber_raise(tamber_call* call, int32_t code, const char* text);

/** The last error of compiling or running. */
TAMBER_API int tamber_get_error(tamber_context* context, tamber_error* error);

#ifdef __cplusplus
}
#endif

#endif
