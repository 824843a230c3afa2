#pragma once

#include <map>
#include <string_view>

#include "engine/stack.h"
#include "functions/function.h"
#include "kel/export.h"

/// Kinds of lists that a module's registration record may hold.
enum enum_FuncModRegType : int32_t {
  FUNCMOD_END = 0,
  FUNCMOD_INTEGERS = 2,             ///< FUNCMOD_INTEGER[]
  FUNCMOD_STRINGS = 3,              ///< FUNCMOD_STRING[]
  FUNCMOD_OBJECTS = 4,              ///< FUNCMOD_OBJECT[]
  FUNCMOD_STRUCTS = 5,              ///< FUNCMOD_STRUCT[]
  FUNCMOD_ERRORS = 6,               ///< FUNCMOD_ERROR[]
  FUNCMOD_FUNCTIONS = 7,            ///< FUNCMOD_FUNCTION[]
  FUNCMOD_CONTEXT_FUNCTIONS = 8,    ///< FUNCMOD_FUNCTION[], implementations take the context too
  FUNCMOD_REPLACING_FUNCTIONS = 9,  ///< FUNCMOD_FUNCTION[], replace what has the same signature
};

/// An integer constant.
struct FUNCMOD_INTEGER {
  KelString name;
  uint32_t value;
};
/// A string constant.
struct FUNCMOD_STRING {
  KelString name;
  KelString value;
};
/// A handle type.
struct FUNCMOD_OBJECT {
  KelString name;
};
/// A structure type: its members as declarations ended by ";". The prototype made at registration
/// is returned through whichever of the two pointers is set.
struct FUNCMOD_STRUCT {
  KelString name;
  KelString members;
  const Variable** prototype;
  std::map<const TamberContext*, const Variable*>* prototypes;
};
/// An error code; `code` is filled in at registration.
struct FUNCMOD_ERROR {
  int32_t code;
  KelString name;
  KelString text;
};
/// A function: its prototype in the language's own syntax, and its body.
struct FUNCMOD_FUNCTION {
  KelString prototype;
  tamber::Implementation implementation;
  std::string_view help;  ///< one line for documentation and tools, borrowed; may be empty
  FunctionTraits traits;  ///< what the engine may take for granted; the default promises nothing
  TamberFunctionExPtr contextImplementation = nullptr;  ///< used instead in lists of type 8
};

/// A module's description of itself: an array of lists, ended by an entry of type FUNCMOD_END.
/// Each list is an array of records ended by one whose first string is empty. The record and its
/// lists stay valid while the module is loaded.
struct FUNCMOD_REGISTRATION {
  enum_FuncModRegType type;
  const void* list;
};

// --- what a module file was built against ---

/// Raised with every change of the records above or of the classes that they hand over.
#define TAMBER_MODULE_VERSION 3

namespace tamber {

/// A number that differs when a module and the runtime see the shared records differently.
constexpr uint64_t ModuleStamp() {
  const uint64_t facts[] = {
      TAMBER_MODULE_VERSION,
      sizeof(void*),
      sizeof(KelString),
      sizeof(Variable),
      sizeof(Stack),
      sizeof(FunctionCallInfo),
      sizeof(FunctionTraits),
      sizeof(tamber::Passed),
      sizeof(tamber::CallError),
      sizeof(FUNCMOD_INTEGER),
      sizeof(FUNCMOD_STRING),
      sizeof(FUNCMOD_OBJECT),
      sizeof(FUNCMOD_STRUCT),
      sizeof(FUNCMOD_ERROR),
      sizeof(FUNCMOD_FUNCTION),
      sizeof(FUNCMOD_REGISTRATION),
      __GXX_ABI_VERSION / 1000,
  };
  uint64_t stamp = 0xCBF29CE484222325u;
  for (const uint64_t fact : facts) stamp = (stamp ^ fact) * 0x100000001B3u;
  return stamp;
}

}  // namespace tamber

/// Every library that includes this header exports it by itself; the runtime refuses a module whose
/// stamp is not its own. A function and not a variable: the system's loader would make one variable
/// of all.
extern "C" {
__attribute__((used)) TAMBER_API inline uint64_t TamberModuleStamp() {
  return tamber::ModuleStamp();
}
}
