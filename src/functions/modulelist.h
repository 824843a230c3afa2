#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "functions/module.h"
#include "kel/kelstring.h"

class KelDebug;
class TamberContext;

namespace tamber {

/// What a module brought into a context, so that it can be taken out again.
class ModuleRegistration {
 public:
  virtual ~ModuleRegistration() = default;
  /// Removes what is still there of it and brings back what it replaced.
  virtual void TakeBack() = 0;
};

/// What modules and their loader need of the context that they belong to.
class ModuleHost {
 public:
  virtual ~ModuleHost() = default;
  virtual TamberContext* GetContext() = 0;
  virtual const KelDebug& Log() const = 0;
  virtual KelString GetIniPath() const = 0;
  /// What the INI file says of where modules are; "" for nothing.
  virtual KelString GetModulePath() const = 0;
  virtual KelString GetExePath() const = 0;
  virtual void SetError(int32_t code, const KelString& text) = 0;
  /// True also for a script that is being loaded at this moment.
  virtual bool IsScriptLoaded(const KelString& path) const = 0;
  /// Looks for a file in directories; "" when there is none. False, with the error set, when the
  /// host's policy keeps scripts from it.
  virtual bool FindFile(const KelString& name, const KelString& directories, KelString& path) = 0;
  /// False, with the error set, when the host's policy keeps scripts from loading a library.
  virtual bool MayLoad(const KelString& path) = 0;
  virtual bool CompileScript(const KelString& path) = 0;
  virtual std::unique_ptr<ModuleRegistration> Register(const FUNCMOD_REGISTRATION* record) = 0;
};

/// Held while a module is initialised, cleaned up or has its record written to: no two contexts do
/// that at the same time. A module may make a context of its own meanwhile, so it is recursive.
std::recursive_mutex& ModuleMutex();

/// The module files that a context has loaded, in the order of loading. Positions count from 0.
class ModuleList {
 public:
  enum FunctionNameEnum { INITIALISE = 0, CLEANUP = 1, CLEANUP_EX = 2 };

  explicit ModuleList(std::unique_ptr<ModuleHost> host) : host_(std::move(host)) {}
  ModuleList(const ModuleList&) = delete;
  ModuleList& operator=(const ModuleList&) = delete;
  ~ModuleList() { ClearModuleList(); }

  /// Lists the modules of a calling context as well; they stay that context's to clean up.
  void Borrow(const ModuleList& caller);

  /// Takes the modules of another list over, which goes on as if it had borrowed them; what they
  /// registered stays a matter of that list.
  void TakeOver(ModuleList& from);

  /// Position of the module with this full path, or -1.
  int32_t FindModule(const KelString& path) const;
  void* GetModuleHandleW(const KelString& path) const;
  /// Loads the library and lists it; null when it is no module for this runtime.
  void* LoadModule(const KelString& path);
  /// Asks a listed module for its record; null when it has none.
  const FUNCMOD_REGISTRATION* InitialiseModule(const KelString& path, void* handle);
  /// Remembers what the module's record brought into the context.
  void SetRegistration(const KelString& path, std::unique_ptr<ModuleRegistration> registration);
  /// Takes what the module registered out of the context, lets it clean up and frees the library.
  void UnloadModule(uint32_t index);
  /// Takes a module that could not be initialised off the list; it has nothing to clean up.
  void DropModule(const KelString& path);
  /// Unloads all, the last one first.
  void ClearModuleList();
  ModuleHost& Host() const { return *host_; }
  uint32_t GetCount() const { return static_cast<uint32_t>(modules_.size()); }
  /// Whether there is a module that unloading all would free.
  bool OwnsAny() const {
    return std::any_of(modules_.begin(), modules_.end(),
                       [](const Module& module) { return module.borrowed == 0; });
  }

  /// Name of an entry point of a module file: "netutil.so" has InitialiseNetutilModule.
  static KelString GetModuleFunctionName(const KelString& path, FunctionNameEnum function);

 private:
  struct Module {
    KelString path;
    void* handle;
    uint32_t borrowed;  ///< nonzero: neither cleaned up nor freed here
    std::unique_ptr<ModuleRegistration> registration;
  };

  void CleanUp(const Module& module) const;

  std::unique_ptr<ModuleHost> host_;
  std::vector<Module> modules_;
};

}  // namespace tamber
