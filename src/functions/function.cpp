#include "functions/function.h"

#include "values/cellops.h"
#include "values/varlist.h"

TamberFunction::TamberFunction(const KelString& name, Variable* returnValue, VarList* parameters,
                               uint16_t type)
    : name_(name), returnValue_(returnValue), parameters_(parameters), type_(type) {
  if (returnValue_ != nullptr) returnType_ = tamber::TypeOf(*returnValue_);
  parameterTypes_.reserve(GetParameterCount());
  for (uint32_t i = 0; i < GetParameterCount(); ++i) {
    parameterTypes_.push_back(tamber::TypeOf(*parameters_->GetVariable(i)));
  }
}

TamberFunction::TamberFunction(const TamberFunction& other)
    : name_(other.name_),
      returnValue_(other.returnValue_ != nullptr ? other.returnValue_->Clone() : nullptr),
      parameters_(other.parameters_ != nullptr ? new VarList(*other.parameters_) : nullptr),
      type_(other.type_),
      plain_(other.plain_),
      extended_(other.extended_),
      target_(other.target_),
      traits_(other.traits_),
      returnType_(other.returnType_),
      parameterTypes_(other.parameterTypes_) {}

TamberFunction::~TamberFunction() {
  delete parameters_;
  Variable::Delete(returnValue_);
}

uint32_t TamberFunction::GetParameterCount() const {
  return parameters_ != nullptr ? parameters_->GetSize() : 0;
}
