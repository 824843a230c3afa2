#pragma once

#include <cstdint>
#include <string_view>

#include "kel/export.h"

/// What the scripts of a context may use, for `TamberContext::SetLimits`. 0 is no limit: hosts that
/// set nothing limit nothing.
///
/// Each limit that is exceeded has an error of its own, whose detail is the limit and its value
/// ("steps=1000"). No error policy of a script sees it. It ends the run, and what the host runs
/// next begins anew.
struct TamberLimits {
  /// Turns of loops and calls of procedures in a run; the same number in every run that does the
  /// same. `ERR_STEPLIMIT`.
  uint64_t steps = 0;
  /// Milliseconds of wall time that a run or a compilation may take; what takes long looks at it as
  /// it looks at `RequestStop`. `ERR_TIMELIMIT`.
  uint64_t milliseconds = 0;
  /// Bytes that values, code and stack frames of the context hold. `ERR_MAXMEMORYEXCEED`.
  uint64_t memory = 0;
  /// Calls of procedures within each other, in each script. `ERR_DEPTHLIMIT`.
  uint64_t calls = 0;
  /// Evaluations of strings within each other. `ERR_EVALUATIONLIMIT`.
  uint64_t evaluations = 0;
  /// Scripts that `call` each other. `ERR_SCRIPTLIMIT`.
  uint64_t scripts = 0;
  /// Bytes that a run prints; the print that would exceed it prints nothing. `ERR_OUTPUTLIMIT`.
  uint64_t output = 0;
  /// Bytes of the reports of a run, traces and dumps among them; what would exceed it is not
  /// written. `ERR_REPORTLIMIT`.
  uint64_t reports = 0;
  /// Bytes of one string. `ERR_STRINGLIMIT`.
  uint64_t string = 0;
  /// Elements of one array. `ERR_ARRAYLIMIT`.
  uint64_t array = 0;
  /// Handles that are open at the same time. `ERR_HANDLELIMIT`.
  uint64_t handles = 0;
  /// Counts what `TamberContext::GetUsage` tells also where nothing limits it.
  bool measured = false;

  /// Sets a limit as users write it: "steps", "time" (milliseconds, or with "s" or "m" behind),
  /// "memory", "output", "reports" and "string" (bytes, or with "K", "M" or "G" behind), "depth"
  /// (of calls), "evaluations", "scripts", "array" and "handles". False, and nothing set, when
  /// there is no such name or the value is none.
  TAMBER_API bool Set(std::string_view name, std::string_view value);
  /// Sets all that a list such as "steps=1000,time=2s" names. Returns the first part that is none,
  /// with nothing set; empty when all are set.
  TAMBER_API std::string_view SetAll(std::string_view list);
};

/// What the last run or compilation of a context has used, or the one that goes on. Zeros where no
/// limit was set and nothing was to be measured.
struct TamberUsage {
  uint64_t steps = 0;
  uint64_t nanoseconds = 0;  ///< wall time
  uint64_t memory = 0;       ///< bytes that the context holds now
  uint64_t peakMemory = 0;   ///< the most that it has held in the run
  uint64_t output = 0;       ///< bytes printed
  uint64_t reports = 0;      ///< bytes of reports
};
