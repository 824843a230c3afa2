#ifndef TAMBER_C_H
#define TAMBER_C_H

/**
 * \file
 * Tamber for programs in C, and for languages that call C.
 *
 * Functions return TAMBER_OK or say what was wrong. Contexts, programs and calls are numbers in the
 * shape of pointers: null, and one that has been freed or has ended, is refused and never followed.
 * A context is used by one thread at a time, a program by any number of them. Strings are bytes
 * with a length and may hold NULs; strings that are returned end with a NUL as well, belong to the
 * context, and are valid until the next function is called with it.
 */

#include <stddef.h>
#include <stdint.h>

#include "kel/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tamber_context tamber_context;
/** What a context was prepared with, for many contexts: see tamber_freeze. */
typedef struct tamber_program tamber_program;
/** A running call of a function of the host; ends when that function returns. */
typedef struct tamber_call tamber_call;

enum {
  TAMBER_OK = 0,
  TAMBER_FAILED = 1,       /**< the script has an error: see tamber_get_error */
  TAMBER_BAD_HANDLE = 2,   /**< the context, program or call is null or no longer there */
  TAMBER_BAD_ARGUMENT = 3, /**< a null pointer, a position that is not there, a malformed path */
  TAMBER_NOT_FOUND = 4,    /**< no variable of that name, no such part, or no result */
  TAMBER_WRONG_TYPE = 5,   /**< the value is not of that type */
  TAMBER_NO_MEMORY = 6,
  TAMBER_STOPPED = 7 /**< the host has stopped it: see tamber_stop */
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
  TAMBER_OTHER = 8, /**< a handle: not for this interface */
  TAMBER_STRUCT = 9,
  TAMBER_ARRAY = 10
};

/** What scripts may do with files; each includes the one before it. */
enum { TAMBER_NO_ACCESS = 0, TAMBER_READ = 1, TAMBER_WRITE = 2 };

/** What scripts see of the process. */
enum { TAMBER_ENVIRONMENT = 1, TAMBER_DIRECTORY_NAME = 2, TAMBER_PROCESSES = 4 };

/** The last error; `code` is 0 when there was none. The strings are never null. */
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
  uint32_t source_line_number; /**< of source_line, from 1; 0 without a line */
  uint32_t frames;             /**< procedures that were running: see tamber_get_frame */
  uint32_t notes;              /**< lines to show below it: see tamber_get_note */
} tamber_error;

/** A procedure that was running when an error came up. */
typedef struct tamber_frame {
  const char* procedure;
  const char* file;
  uint32_t line; /**< of the statement that it was at, from 1 */
} tamber_frame;

/** A line to show below an error: what was found, or what may have been meant. For people; the
 * wording may change. */
typedef struct tamber_note {
  int is_hint; /**< 1: what may have been meant */
  const char* text;
} tamber_note;

/** Takes what scripts print. A call with a length of 0, when `text` may be null, asks to show what
 * was collected: before input is read, and after a called script. */
typedef void (*tamber_output)(const char* text, size_t length, void* user);
/** Is shown each report, dump or trace with the section of the INI file that it belongs to. What it
 * returns 1 for is not written where that file routes it. */
typedef int (*tamber_report)(const char* section, const char* text, size_t length, void* user);
/** Asked whether a run may go on; 0 ends it as tamber_stop does. `user` is what was passed with it.
 */
typedef int (*tamber_progress)(void* user);
/** What a run has used. */
typedef struct tamber_usage {
  uint64_t steps;       /**< turns of loops and calls of procedures */
  uint64_t nanoseconds; /**< wall time */
  uint64_t memory;      /**< bytes that the context holds now */
  uint64_t peak_memory; /**< the most that it has held in the run */
  uint64_t output;      /**< bytes printed */
  uint64_t reports;     /**< bytes of reports */
} tamber_usage;
/** A function of the host that scripts call. Anything but TAMBER_OK ends the script's run. */
typedef int (*tamber_function)(tamber_call* call, void* user);

/** "MAJOR.MINOR.PATCH" of the library; never freed. */
TAMBER_API const char* tamber_version(void);

/** A new context; null without memory. */
TAMBER_API tamber_context* tamber_new(void);
/** Ends a context; one that is running ends with its run. */
TAMBER_API int tamber_free(tamber_context* context);

/* Programs: compile once, run in as many contexts and threads as there are requests. */
/** Makes a program of what a context has: scripts, types, registered functions, the values of its
 * globals, its settings, and where output and reports go. Neither changes the other afterwards, and
 * either may be freed first. TAMBER_FAILED, with a null program, while the context runs, and after
 * a compilation that has failed until another one succeeds. Threads will call the registered
 * functions at the same time, each with the `user` that it was registered with. */
TAMBER_API int tamber_freeze(tamber_context* context, tamber_program** program);
/** A context that begins as the program's was, without compiling anything; null when it fails. May
 * be called from any number of threads at the same time. */
TAMBER_API int tamber_new_from(tamber_program* program, tamber_context** context);
/** Releases a program; contexts that were made of it go on, and the last of them ends it. May be
 * called from any thread. */
TAMBER_API int tamber_free_program(tamber_program* program);

/** The configuration file; initially "./tamber.ini". Reports of errors are written only where it
 * says so. */
TAMBER_API int tamber_set_ini(tamber_context* context, const char* path);
/** Where the output of scripts goes; a null function means standard output. */
TAMBER_API int tamber_set_output(tamber_context* context, tamber_output output, void* user);

/** Where reports go; a null function means where the INI file routes them. */
TAMBER_API int tamber_set_report(tamber_context* context, tamber_report report, void* user);

/* What scripts may do; everything by default. Each call changes one thing and leaves the others. */
/** With files outside of the directories below. */
TAMBER_API int tamber_allow_files(tamber_context* context, int access);
/** With a directory and what is below it; of nested ones the innermost counts. TAMBER_NOT_FOUND
 * when there is no such directory. */
TAMBER_API int tamber_allow_directory(tamber_context* context, const char* path, int access);
TAMBER_API int tamber_allow_network(tamber_context* context, int allowed);
/** How long a request to a server may take and how large its file may be; 0: any. */
TAMBER_API int tamber_limit_transfers(tamber_context* context, uint32_t seconds, uint64_t bytes);
/** `what` is a sum of TAMBER_ENVIRONMENT, TAMBER_DIRECTORY_NAME and TAMBER_PROCESSES. */
TAMBER_API int tamber_show_process(tamber_context* context, int what);

/* Limits, as TamberContext has them. */
/** Sets those that a list such as "steps=1000000,time=2s,memory=64M" names, for runs that begin
 * from now on; the others stay. Names: steps, time (milliseconds), memory, depth, evaluations,
 * scripts, output, reports, string, array, handles; 0 is no limit. TAMBER_BAD_ARGUMENT, with
 * nothing set, when a part is none. A run that exceeds one ends with TAMBER_FAILED and an error
 * of its own, 20115 or 20121 to 20130. */
TAMBER_API int tamber_set_limits(tamber_context* context, const char* limits);
/** What the last run has used, or the one that goes on; zeros while no limit was ever set. */
TAMBER_API int tamber_get_usage(tamber_context* context, tamber_usage* usage);
/** Calls `tell` every so many steps and milliseconds of a run; 0: never, null: nobody is told. Only
 * while nothing runs. */
TAMBER_API int tamber_set_progress(tamber_context* context, uint64_t steps, uint64_t milliseconds,
                                   tamber_progress tell, void* user);
/** 0: `%` by zero is error 11, as `/` by zero is; nonzero: it raises SIGFPE, the default. */
TAMBER_API int tamber_set_remainder_fault(tamber_context* context, int faults);

/* Stopping. A stopped run ends with TAMBER_STOPPED and the error 20120, and so does every further
 * one until the stop is cancelled or the context reset. */
/** May be called from any thread. */
TAMBER_API int tamber_stop(tamber_context* context);
/** May be called from any thread. */
TAMBER_API int tamber_is_stopped(tamber_context* context, int* stopped);
/** Takes a stop back; scripts and globals stay. Not while something runs. */
TAMBER_API int tamber_cancel_stop(tamber_context* context);
/** Saves the session and clears scripts, globals, errors and stops. */
TAMBER_API int tamber_reset(tamber_context* context);

/* Sessions, as TamberContext has them. TAMBER_FAILED: there is no session, or its store failed. */
TAMBER_API int tamber_set_session(tamber_context* context, uint32_t session);
TAMBER_API int tamber_session_exists(tamber_context* context, uint32_t session, int* exists);
TAMBER_API int tamber_expire_sessions(tamber_context* context, uint32_t max_age_seconds);
TAMBER_API int tamber_load_session(tamber_context* context);
TAMBER_API int tamber_save_session(tamber_context* context);
/** Remembers the values of all globals. */
TAMBER_API int tamber_keep_globals(tamber_context* context);
/** Restores them. TAMBER_FAILED when none were kept. */
TAMBER_API int tamber_restore_globals(tamber_context* context);

TAMBER_API int tamber_compile_file(tamber_context* context, const char* path);
/** `name` is what errors call the source text. */
TAMBER_API int tamber_compile_text(tamber_context* context, const char* name, const char* text,
                                   size_t length);

/* Arguments of the next run, the first one first. */
TAMBER_API int tamber_push_bool(tamber_context* context, int value);
TAMBER_API int tamber_push_int(tamber_context* context, int32_t value);
TAMBER_API int tamber_push_double(tamber_context* context, double value);
TAMBER_API int tamber_push_text(tamber_context* context, const char* text, size_t length);
/** A global variable, or a part of one, as an argument, which a reference parameter can change. */
TAMBER_API int tamber_push_global(tamber_context* context, const char* name);
/** Runs a procedure with the arguments that were pushed. They are removed afterwards, also when the
 * procedure cannot take them. */
TAMBER_API int tamber_run(tamber_context* context, const char* procedure);

/* What the last run returned. Numbers are converted from any number, strings from nothing else. */
/** Lets the functions below read a part of the result, such as "[2].name"; "" is all of it. */
TAMBER_API int tamber_result_part(tamber_context* context, const char* part);
TAMBER_API int tamber_result_type(tamber_context* context, int* type);
/** Elements of an array, or members of a structure. */
TAMBER_API int tamber_result_size(tamber_context* context, uint32_t* count);
TAMBER_API int tamber_result_int(tamber_context* context, int32_t* value);
TAMBER_API int tamber_result_double(tamber_context* context, double* value);
TAMBER_API int tamber_result_text(tamber_context* context, const char** text, size_t* length);
/** The numbers of an array, as tamber_get_ints copies them. */
TAMBER_API int tamber_result_ints(tamber_context* context, int32_t* values, uint32_t room,
                                  uint32_t* count);
TAMBER_API int tamber_result_doubles(tamber_context* context, double* values, uint32_t room,
                                     uint32_t* count);

/* Global variables and constants; constants cannot be set. Wherever a name is asked for, a part may
 * follow it as in scripts: "order.lines[1].price". Elements count from 1. */
TAMBER_API int tamber_get_type(tamber_context* context, const char* name, int* type);
/** Elements of an array, or members of a structure. */
TAMBER_API int tamber_get_size(tamber_context* context, const char* name, uint32_t* count);
/** The name of a structure's member, by its position from 0. */
TAMBER_API int tamber_get_member(tamber_context* context, const char* name, uint32_t position,
                                 const char** member);
TAMBER_API int tamber_get_int(tamber_context* context, const char* name, int32_t* value);
TAMBER_API int tamber_get_double(tamber_context* context, const char* name, double* value);
TAMBER_API int tamber_get_text(tamber_context* context, const char* name, const char** text,
                               size_t* length);
/** The numbers of an array: at most `room` of them are copied; `count` is how many it has. */
TAMBER_API int tamber_get_ints(tamber_context* context, const char* name, int32_t* values,
                               uint32_t room, uint32_t* count);
TAMBER_API int tamber_get_doubles(tamber_context* context, const char* name, double* values,
                                  uint32_t room, uint32_t* count);
/** The numbers of an `int[]` or `double[]` where they lie, without a copy; borrowed until a
 * function is called for the context. TAMBER_WRONG_TYPE also as long as a script that runs refers
 * to one of the elements: copies can be had then. */
TAMBER_API int tamber_borrow_ints(tamber_context* context, const char* name, const int32_t** values,
                                  uint32_t* count);
TAMBER_API int tamber_borrow_doubles(tamber_context* context, const char* name,
                                     const double** values, uint32_t* count);
TAMBER_API int tamber_set_int(tamber_context* context, const char* name, int32_t value);
TAMBER_API int tamber_set_double(tamber_context* context, const char* name, double value);
TAMBER_API int tamber_set_text(tamber_context* context, const char* name, const char* text,
                               size_t length);

/** Makes an array hold these numbers. */
TAMBER_API int tamber_set_ints(tamber_context* context, const char* name, const int32_t* values,
                               uint32_t count);
TAMBER_API int tamber_set_doubles(tamber_context* context, const char* name, const double* values,
                                  uint32_t count);
/** Sets the number of elements of an array; new ones are empty. */
TAMBER_API int tamber_set_size(tamber_context* context, const char* name, uint32_t count);

/** Makes a function of the host a built-in under a prototype in the language's own syntax, such as
 * "double Area (int W, double H)". Parameters may be of every type, results are scalars and
 * strings. A function that returns nothing yields 0 or "". */
TAMBER_API int tamber_register(tamber_context* context, const char* prototype,
                               tamber_function function, void* user);
/* The arguments of a call, counted from 0. A string is valid until the function returns. */
TAMBER_API int tamber_arg_count(tamber_call* call, uint32_t* count);
TAMBER_API int tamber_arg_int(tamber_call* call, uint32_t position, int32_t* value);
TAMBER_API int tamber_arg_double(tamber_call* call, uint32_t position, double* value);
TAMBER_API int tamber_arg_text(tamber_call* call, uint32_t position, const char** text,
                               size_t* length);
/* Parts of arguments that are structures and arrays, as in "[2].name"; "" is the whole. */
TAMBER_API int tamber_arg_part_type(tamber_call* call, uint32_t position, const char* part,
                                    int* type);
TAMBER_API int tamber_arg_part_size(tamber_call* call, uint32_t position, const char* part,
                                    uint32_t* count);
TAMBER_API int tamber_arg_part_int(tamber_call* call, uint32_t position, const char* part,
                                   int32_t* value);
TAMBER_API int tamber_arg_part_double(tamber_call* call, uint32_t position, const char* part,
                                      double* value);
TAMBER_API int tamber_arg_part_text(tamber_call* call, uint32_t position, const char* part,
                                    const char** text, size_t* length);
TAMBER_API int tamber_return_int(tamber_call* call, int32_t value);
TAMBER_API int tamber_return_double(tamber_call* call, double value);
TAMBER_API int tamber_return_text(tamber_call* call, const char* text, size_t length);
/** Raises an error of the language; below 20000 the script may handle it. The function still
 * returns TAMBER_OK. */
TAMBER_API int tamber_raise(tamber_call* call, int32_t code, const char* text);

/** The last error of compiling or running. */
TAMBER_API int tamber_get_error(tamber_context* context, tamber_error* error);
/** A procedure that was running when it came up, the innermost at position 0. */
TAMBER_API int tamber_get_frame(tamber_context* context, uint32_t position, tamber_frame* frame);
/** A line to show below it, the first at position 0. */
TAMBER_API int tamber_get_note(tamber_context* context, uint32_t position, tamber_note* note);

#ifdef __cplusplus
}
#endif

#endif
