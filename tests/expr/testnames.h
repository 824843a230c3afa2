#pragma once

#include "expr/exprnames.h"
#include "functions/funclist.h"
#include "machine/testhost.h"

/// Names for expressions: the variables of a TestHost, and no procedures and functions.
class TestNames final : public tamber::ExpressionNames {
 public:
  Variable* FindVariable(const KelString& name, uint32_t scopes) override {
    return (scopes & VARLIST_GLOBAL) != 0 ? host.variables.GetVariable(name.View()) : nullptr;
  }
  const Variable* FindConstant(std::string_view) override { return nullptr; }
  tamber::Callable* FindCallable(std::string_view) override { return nullptr; }
  void OfferNames(kel::NearestName&, bool) override {}
  FunctionList& Functions() override { return functions_; }
  tamber::Machine& Evaluator() override { return machine; }

  TestHost host;
  tamber::Machine machine{host.run, host};

 private:
  FunctionList functions_;
};
