#pragma once

#include <memory>

#include "kel/export.h"

class TamberContext;

namespace tamber {
class ContextState;
}

/// What a host has prepared once for many contexts: scripts with their compiled procedures, types,
/// structures, constants, registered functions and error codes, modules, the values that globals
/// had, and the settings.
///
///     TamberContext prepared;
///     prepared.CompileScriptFile("server.tam");
///     const std::shared_ptr<const TamberProgram> program = prepared.Freeze();
///     ...
///     TamberContext context(program);   // in any thread, for each request
///     tamber::Call(context, "Serve", path);
///
/// A program never changes. Any number of contexts in any number of threads may be made of it and
/// run at the same time; each of them is used by one thread at a time, as every context is. A
/// context keeps its program, and a program the modules that it needs, so that a server may put
/// another program in its place at any moment: requests that run end on the old one, which goes
/// away with the last context of it. Its modules are cleaned up by the thread that lets go last.
class TAMBER_API TamberProgram {
 public:
  TamberProgram(const TamberProgram&) = delete;
  TamberProgram& operator=(const TamberProgram&) = delete;
  ~TamberProgram();

 private:
  friend class TamberContext;
  friend class tamber::ContextState;
  explicit TamberProgram(std::unique_ptr<TamberContext> prepared);

  /// Never runs and is never written to.
  std::unique_ptr<const TamberContext> prepared_;
};
