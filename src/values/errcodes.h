#pragma once

#include <cstdint>

/// The numbers of the built-in errors. Below 20000: run-time errors, which a script may handle.
/// From 20000 up: fatal, they end the run.
enum TamberError : int32_t {
  ERR_SUCCESS = 0,
#define TAMBER_ERROR(code, name, text) name = (code),
#include "values/errlist.def"
#undef TAMBER_ERROR
};

namespace tamber {

/// Raised for a structure block that cannot be completed, and for a malformed member line. Both are
/// reported by number: they have no name, no message and no constant in scripts.
inline constexpr int32_t kErrStructBlock = 20210;
inline constexpr int32_t kErrStructMember = 20211;

/// The first fatal error number.
inline constexpr int32_t kFirstFatalError = 20000;

}  // namespace tamber
