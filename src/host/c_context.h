#pragma once

#include <memory>
#include <new>
#include <string>

#include "context/program.h"
#include "context/tambctxt.h"
#include "host/value.h"
#include "host/valuepath.h"
#include "tamber_c.h"

/// What the files of the C interface share.
namespace tamber::host {

/// Where output and reports go.
struct CListeners {
  tamber_output output = nullptr;
  void* outputUser = nullptr;
  tamber_report report = nullptr;
  void* reportUser = nullptr;
};

/// What a tamber_program stands for.
struct CProgram {
  std::shared_ptr<const TamberProgram> program;
  CListeners listeners;
};

/// What a tamber_context stands for.
struct CContext : std::enable_shared_from_this<CContext> {
  CContext() { context.SetDefaultReports(false); }
  /// What the program's context called was that context's; this one has to be listened to itself.
  explicit CContext(const CProgram& from) : listeners(from.listeners), context(from.program) {
    Listen();
  }
  /// After a change of the listeners.
  void Listen();

  CListeners listeners;
  TamberContext context;
  Stack stack;  ///< the arguments of the next run
  VariablePtr result;
  std::string resultPart;  ///< the part of it that is read
};

/// What a failure is: an error of the script, or no error but a stop.
int FailureOf(int32_t code);

/// Null when there is none. From any thread, whatever the others do.
std::shared_ptr<CContext> FindContext(const tamber_context* handle);
/// The same in the thread that uses the context now, without a lock for the one that it has used
/// last.
std::shared_ptr<CContext> FindOwnContext(const tamber_context* handle);

/// Nothing is thrown into C.
template <class Body>
int Guarded(Body&& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return TAMBER_NO_MEMORY;
  } catch (...) {
    return TAMBER_FAILED;
  }
}

/// What other threads may do with a context finds it with FindContext.
template <auto Find = FindOwnContext, class Body>
int WithContext(const tamber_context* handle, Body&& body) {
  return Guarded([&]() -> int {
    const std::shared_ptr<CContext> context = Find(handle);
    return context != nullptr ? body(*context) : static_cast<int>(TAMBER_BAD_HANDLE);
  });
}

inline bool IsText(const char* text, size_t length) {
  return (text != nullptr || length == 0) && length <= UINT32_MAX;
}
inline KelString TextOf(const char* text, size_t length) {
  return length == 0 ? KelString() : KelString(text, length);
}

/// TAMBER_OK, or what a path into a value came to instead.
int StatusOf(PathEnd end);

/// TAMBER_INT and so on.
int TypeCode(const PartView& part);

/// Reads that tell what is wrong with the part, or with the pointer.
int ReadSize(const PartView& part, uint32_t* count);
int ReadInts(const PartView& part, int32_t* values, uint32_t room, uint32_t* count);
int ReadDoubles(const PartView& part, double* values, uint32_t room, uint32_t* count);
int ReadInt(const PartView& part, int32_t* value);
int ReadDouble(const PartView& part, double* value);
int ReadText(const PartView& part, const char** text, size_t* length);

/// Finds a part of a value, which may be missing, and reads it.
template <class Read>
int ReadPart(Variable* whole, std::string_view path, Read&& read) {
  if (whole == nullptr) return TAMBER_NOT_FOUND;
  PartView part;
  const int status = StatusOf(FindPart(*whole, path, part));
  return status == TAMBER_OK ? read(part) : status;
}

VariablePtr IntOf(int32_t value);
VariablePtr DoubleOf(double value);
VariablePtr StringOf(const char* text, size_t length);

}  // namespace tamber::host
