// What else a module file may do; the test gives copies of it different names.
#include <stdexcept>

#include "functions/module.h"

extern "C" TAMBER_API int cleanupCount;  // the test's

namespace {
const FUNCMOD_FUNCTION none[] = {{"", nullptr, "", {}}};
const FUNCMOD_REGISTRATION empty[] = {
    {FUNCMOD_FUNCTIONS, nullptr}, {FUNCMOD_CONTEXT_FUNCTIONS, none}, {FUNCMOD_END, nullptr}};
}  // namespace

extern "C" {
TAMBER_API const FUNCMOD_REGISTRATION* InitialiseEmptyModule() { return empty; }
TAMBER_API void CleanupEmptyModule() { cleanupCount += 10; }
TAMBER_API const FUNCMOD_REGISTRATION* InitialiseNothingModule() { return nullptr; }
TAMBER_API void CleanupNothingModule() { cleanupCount += 100000; }
TAMBER_API const FUNCMOD_REGISTRATION* InitialiseThrowerModule() { throw std::runtime_error("no"); }
}
