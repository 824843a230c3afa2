#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "engine/tambops.h"
#include "functions/funclist.h"
#include "machine/callable.h"
#include "machine/code.h"
#include "machine/machine.h"
#include "machine/machinehost.h"
#include "machine/sourceplace.h"
#include "values/varlist.h"

/// A machine without a context around it: variables and procedures are those that a test enters.
class TestHost final : public tamber::MachineHost {
 public:
  using MakeCodeOf = std::function<std::unique_ptr<tamber::Code>(tamber::Callable&)>;

  TamberContext& Context() override { return *static_cast<TamberContext*>(handedOn_); }
  TamberOperators& Operators() override { return operators_; }
  FunctionList& Functions() override { return functions_; }
  Variable* FindOuter(const tamber::Name& name) override {
    return variables.GetVariable(name.View());
  }
  int32_t SwitchValue(std::string_view) override { return 0; }
  tamber::Callable* FindCallable(std::string_view) override { return nullptr; }
  std::unique_ptr<tamber::Code> MakeCode(tamber::Callable& procedure, bool) override {
    return makeCode(procedure);
  }
  void CallScript(const KelString&) override {}
  KelString HandleRunError(const tamber::SourcePlace& place) override {
    reports.push_back("error " + std::to_string(run.errorCode) + " at line " +
                      std::to_string(place.line));
    run.errorCode = 0;
    return "DEFAULT_HANDLER";
  }
  void HandleParseError(const tamber::SourcePlace& place) override {
    reports.push_back("fatal " + std::to_string(run.errorCode) + " at line " +
                      std::to_string(place.line));
  }
  void RaiseFault(const tamber::SourcePlace&) override {}
  void NoteUnknownProcedure(std::string_view) override {}
  void NoteStop(const tamber::SourcePlace&) override {}
  void TellProgress() override {}
  void Trace(KelString) override {}

  tamber::RunState run;
  VarList variables;
  MakeCodeOf makeCode;
  std::vector<std::string> reports;

 private:
  // Built-ins are given it; nothing here has one.
  alignas(std::max_align_t) char nothing_[16] = {};
  void* handedOn_ = nothing_;
  TamberOperators operators_;
  FunctionList functions_;
};
