#include "functions/modulelist.h"

#include <utility>

#include "kel/kelascii.h"
#include "kel/keldebug.h"
#include "kel/loader.h"
#include "kel/pathparser.h"

namespace tamber {
namespace {

using InitialiseFunction = const FUNCMOD_REGISTRATION* (*)();
using CleanupFunction = void (*)();
using CleanupExFunction = void (*)(TamberContext*);

template <class Function>
Function FindEntry(const KelString& path, void* handle, ModuleList::FunctionNameEnum which) {
  const KelString name = ModuleList::GetModuleFunctionName(path, which);
  return reinterpret_cast<Function>(kel::FindSymbol(handle, name.GetString()));
}

/// A library that says how the records looked when it was built must say what we say.
bool HasForeignStamp(void* handle) {
  const auto stamp = reinterpret_cast<uint64_t (*)()>(kel::FindSymbol(handle, "TamberModuleStamp"));
  return stamp != nullptr && stamp() != TamberModuleStamp();
}

}  // namespace

std::recursive_mutex& ModuleMutex() {
  static std::recursive_mutex mutex;
  return mutex;
}

void ModuleList::Borrow(const ModuleList& caller) {
  for (const Module& module : caller.modules_) {
    modules_.push_back({module.path, module.handle, 1, nullptr});
  }
}

void ModuleList::TakeOver(ModuleList& from) {
  for (Module& module : from.modules_) {
    modules_.push_back({module.path, module.handle, module.borrowed, nullptr});
    module.borrowed = 1;
  }
}

int32_t ModuleList::FindModule(const KelString& path) const {
  for (size_t i = 0; i < modules_.size(); ++i) {
    if (modules_[i].path == path) return static_cast<int32_t>(i);
  }
  return -1;
}

void* ModuleList::GetModuleHandleW(const KelString& path) const {
  const int32_t index = FindModule(path);
  return index < 0 ? nullptr : modules_[static_cast<uint32_t>(index)].handle;
}

void* ModuleList::LoadModule(const KelString& path) {
  std::string error;
  void* handle = kel::LoadLibraryFile(path, error);
  if (handle != nullptr) {
    if (FindEntry<InitialiseFunction>(path, handle, INITIALISE) == nullptr) {
      error = GetModuleFunctionName(path, INITIALISE).Str() + " is missing";
    } else if (HasForeignStamp(handle)) {
      error = "it was built for another version of the runtime";
    }
  }
  if (!error.empty()) {
    host_->Log().Logf(KelDebug::Level::Error, "Module %S cannot be loaded: %S", path, error);
    kel::FreeLibraryFile(handle);
    return nullptr;
  }
  modules_.push_back({path, handle, 0, nullptr});
  return handle;
}

const FUNCMOD_REGISTRATION* ModuleList::InitialiseModule(const KelString& path, void* handle) {
  const std::lock_guard lock(ModuleMutex());
  const auto initialise = FindEntry<InitialiseFunction>(path, handle, INITIALISE);
  if (initialise == nullptr) return nullptr;
  try {
    return initialise();
  } catch (...) {
    host_->Log().Logf(KelDebug::Level::Error, "Module %S threw while it was initialised", path);
    return nullptr;
  }
}

void ModuleList::SetRegistration(const KelString& path,
                                 std::unique_ptr<ModuleRegistration> registration) {
  const int32_t index = FindModule(path);
  if (index >= 0) modules_[static_cast<uint32_t>(index)].registration = std::move(registration);
}

void ModuleList::UnloadModule(uint32_t index) {
  if (index >= modules_.size()) return;
  const std::lock_guard lock(ModuleMutex());
  Module module = std::move(modules_[index]);
  modules_.erase(modules_.begin() + static_cast<ptrdiff_t>(index));
  if (module.borrowed == 0) CleanUp(module);
  if (module.registration) module.registration->TakeBack();
  module.registration.reset();
  if (module.borrowed == 0) kel::FreeLibraryFile(module.handle);
}

void ModuleList::DropModule(const KelString& path) {
  const int32_t index = FindModule(path);
  if (index < 0) return;
  const auto at = modules_.begin() + index;
  void* handle = at->borrowed == 0 ? at->handle : nullptr;
  modules_.erase(at);
  const std::lock_guard lock(ModuleMutex());
  kel::FreeLibraryFile(handle);
}

void ModuleList::ClearModuleList() {
  while (!modules_.empty()) UnloadModule(GetCount() - 1);
}

void ModuleList::CleanUp(const Module& module) const {
  try {
    if (const auto extended =
            FindEntry<CleanupExFunction>(module.path, module.handle, CLEANUP_EX)) {
      extended(host_->GetContext());
    } else if (const auto plain = FindEntry<CleanupFunction>(module.path, module.handle, CLEANUP)) {
      plain();
    }
  } catch (...) {
    host_->Log().Logf(KelDebug::Level::Error, "Module %S threw while it was cleaned up",
                      module.path);
  }
}

KelString ModuleList::GetModuleFunctionName(const KelString& path, FunctionNameEnum function) {
  KelString name = PathParser(path).GetFileRoot();
  if (!name.IsEmpty()) name.Str()[0] = kel::ToUpper(name[0]);
  return (function == INITIALISE ? "Initialise" : "Cleanup") + name +
         (function == CLEANUP_EX ? "ModuleEx" : "Module");
}

}  // namespace tamber
