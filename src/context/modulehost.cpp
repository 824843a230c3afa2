#include "context/modulehost.h"

#include <new>

#include "context/contextstate.h"
#include "context/registration.h"
#include "functions/moduleload.h"

namespace tamber {
namespace {

class ContextModuleHost final : public ModuleHost {
 public:
  explicit ContextModuleHost(ContextState& state) : state_(state) {}

  TamberContext* GetContext() override { return &state_.context; }
  const KelDebug& Log() const override { return state_.debug; }
  KelString GetIniPath() const override { return state_.IniFilePath(); }
  KelString GetModulePath() const override { return state_.Ini().Text(IniKey::ModulePath); }
  KelString GetExePath() const override { return state_.config.exePath; }
  void SetError(int32_t code, const KelString& text) override {
    state_.context.SetContextError(code, text);
  }
  bool IsScriptLoaded(const KelString& path) const override {
    return state_.context.FindScript(path) != nullptr || state_.loading.count(path.Str()) != 0;
  }
  bool FindFile(const KelString& name, const KelString& directories, KelString& path) override {
    return state_.FindFile(name, directories, path);
  }
  bool MayLoad(const KelString& path) override { return state_.MayLoad(path); }
  bool CompileScript(const KelString& path) override {
    return state_.CompileFile(path, state_.config.filePolicy.Find(path, kel::Access::Read)) != 0;
  }
  std::unique_ptr<ModuleRegistration> Register(const FUNCMOD_REGISTRATION* record) override {
    auto registration = std::make_unique<ContextRegistration>(state_.context);
    registration->Register(record);
    return registration;
  }

 private:
  ContextState& state_;
};

}  // namespace

std::unique_ptr<ModuleList> MakeModuleList(ContextState& state) {
  return std::make_unique<ModuleList>(std::make_unique<ContextModuleHost>(state));
}

}  // namespace tamber

bool TamberContext::LoadFunctionModule(const KelString& file, const KelString& callingScript,
                                       void** handle) {
  try {
    return tamber::LoadModuleFile(*State().modules, file, callingScript, handle);
  } catch (const std::bad_alloc&) {
    SetContextError(ERR_NOMEMORY, "");
    return false;
  }
}
