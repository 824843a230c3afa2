#include "functions/function.h"

#include <mutex>

#include "functions/prototype.h"
#include "kel/kelascii.h"
#include "values/cellops.h"
#include "values/varholder.h"
#include "values/varlist.h"

/// What a prototype says beside the name.
struct TamberFunction::Signature {
  /// Takes both over unless it throws.
  Signature(Variable* value, VarList* list) {
    returnType =
        value != nullptr ? tamber::TypeOf(*value) : tamber::TypeDesc::Of(tamber::Kind::None);
    const uint32_t count = list != nullptr ? list->GetSize() : 0;
    parameterTypes.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
      parameterTypes.push_back(tamber::TypeOf(*list->GetVariable(i)));
    }
    returnValue.reset(value);
    parameters.reset(list);
  }

  tamber::VarHolder returnValue;
  std::unique_ptr<VarList> parameters;
  tamber::TypeRef returnType;
  std::vector<tamber::TypeRef> parameterTypes;
};

/// It is the word before the parameters.
std::string_view TamberFunction::NameIn(std::string_view prototype) {
  prototype = prototype.substr(0, prototype.find('('));
  while (!prototype.empty() && kel::IsSpace(prototype.back())) prototype.remove_suffix(1);
  size_t start = prototype.size();
  while (start > 0 && !kel::IsSpace(prototype[start - 1])) --start;
  return prototype.substr(start);
}

TamberFunction::TamberFunction(const KelString& name, Variable* returnValue, VarList* parameters,
                               uint16_t type)
    : name_(name), type_(type), signature_(new Signature(returnValue, parameters)) {}

TamberFunction::TamberFunction(const KelString& prototype, const TypeList& types, uint16_t type)
    : name_(NameIn(prototype)),
      type_(type),
      prototype_(&prototype),
      types_(&types),
      signature_(nullptr) {}

TamberFunction::TamberFunction(const TamberFunction& other)
    : name_(other.name_),
      type_(other.type_),
      inlined_(other.inlined_),
      plain_(other.plain_),
      extended_(other.extended_),
      direct_(other.direct_),
      target_(other.target_),
      traits_(other.traits_) {
  const Signature& signature = other.GetSignature();
  tamber::VarHolder value;
  std::unique_ptr<VarList> list;
  if (signature.returnValue) value.reset(signature.returnValue->Clone());
  if (signature.parameters) list = std::make_unique<VarList>(*signature.parameters);
  signature_ = new Signature(value.get(), list.get());
  static_cast<void>(value.release());
  static_cast<void>(list.release());
}

TamberFunction::~TamberFunction() { delete signature_.load(std::memory_order_acquire); }

const TamberFunction::Signature& TamberFunction::GetSignature() const {
  const Signature* known = signature_.load(std::memory_order_acquire);
  if (known != nullptr) [[likely]] {
    return *known;
  }
  static std::mutex reading;
  const std::lock_guard lock(reading);
  known = signature_.load(std::memory_order_acquire);
  if (known == nullptr) {
    tamber::Prototype read;
    KelString message;
    const auto type = static_cast<FunctionList::FuncType_e>(type_);
    if (!tamber::ParsePrototype(prototype_->View(), *types_, type, read, message)) read = {};
    known = new Signature(read.returnValue.get(), read.parameters.get());
    static_cast<void>(read.returnValue.release());
    static_cast<void>(read.parameters.release());
    signature_.store(known, std::memory_order_release);
  }
  return *known;
}

Variable* TamberFunction::GetVariable() const { return GetSignature().returnValue.get(); }

uint32_t TamberFunction::GetParameterCount() const {
  return static_cast<uint32_t>(GetSignature().parameterTypes.size());
}

VarList* TamberFunction::GetParameterList() const { return GetSignature().parameters.get(); }

const tamber::TypeRef& TamberFunction::ReturnType() const { return GetSignature().returnType; }

const std::vector<tamber::TypeRef>& TamberFunction::ParameterTypes() const {
  return GetSignature().parameterTypes;
}
