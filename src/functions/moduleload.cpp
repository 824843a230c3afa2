#include "functions/moduleload.h"

#include <utility>

#include "kel/keldebug.h"
#include "kel/pathparser.h"

namespace tamber {
namespace {

constexpr int32_t kModuleNotLoaded = 20117;
constexpr int32_t kModuleNotFound = 20118;

bool IsModuleFile(const KelString& file) {
  const KelString extension = PathParser(file).GetFileExt().ToLower();
  return extension == ".tbx" || extension == ".dll" || extension == ".so";
}

void AppendConfiguredPath(KelString& path, const ModuleHost& host) {
  const KelString configured = host.GetModulePath();
  if (configured.IsEmpty()) return;
  path += ";" + configured;
  if (!kel::PathIsRelative(configured)) return;
  PathParser beside(host.GetIniPath());
  beside.SetFileName(configured);
  path += ";";
  path += kel::ResolvePath(beside.GetPath());
}

bool LoadLibraryModule(ModuleList& modules, const KelString& path, void** handle) {
  void* library = modules.LoadModule(path);
  const FUNCMOD_REGISTRATION* record = nullptr;
  if (library != nullptr) {
    record = modules.InitialiseModule(path, library);
    if (record == nullptr) modules.DropModule(path);
  }
  if (record == nullptr) {
    modules.Host().SetError(kModuleNotLoaded, "");
    return false;
  }
  if (handle != nullptr) *handle = library;
  modules.SetRegistration(path, modules.Host().Register(record));
  return true;
}

}  // namespace

KelString ModuleSearchPath(const ModuleHost& host, const KelString& file,
                           const KelString& callingScript) {
  KelString path(".;");
  if (!callingScript.IsEmpty()) path += PathParser(callingScript).GetDriveDir();
  if (!IsModuleFile(file)) return path;
  const KelString exePath = host.GetExePath();
  if (!exePath.IsEmpty()) {
    const KelString exeDir = PathParser(exePath).GetDriveDir();
    path += ";" + exeDir + ";" + kel::JoinPath(exeDir, "modules");
  }
  AppendConfiguredPath(path, host);
  return path;
}

bool LoadModuleFile(ModuleList& modules, const KelString& file, const KelString& callingScript,
                    void** handle) {
  ModuleHost& host = modules.Host();
  const KelString searchPath = ModuleSearchPath(host, file, callingScript);
  KelString path;
  if (!host.FindFile(file, searchPath, path)) return false;
  if (path.IsEmpty()) {
    host.Log().Logf(KelDebug::Level::Error, "File %S not found using search path %S", file,
                    searchPath);
    host.SetError(kModuleNotFound, file);
    return false;
  }
  if (host.IsScriptLoaded(path)) {
    host.Log().Log(KelDebug::Level::Detail, "Script is already loaded");
    return true;
  }
  if (modules.FindModule(path) >= 0) {
    if (handle != nullptr) *handle = modules.GetModuleHandleW(path);
    return true;
  }
  if (!IsModuleFile(file)) return host.CompileScript(path);
  return host.MayLoad(path) && LoadLibraryModule(modules, path, handle);
}

}  // namespace tamber
