#pragma once

#include <new>
#include <string_view>

#include "values/strbuf.h"
#include "values/varordered.h"

/// Script type "string": bytes with a length.
class TAMBER_API VarString : public tamber::OrderedVariable {
 public:
  VarString(const KelString& name, uint32_t flags) : VarString(tamber::Name(name.View()), flags) {}
  VarString(const tamber::Name& name, uint32_t flags)
      : OrderedVariable(String, tamber::Kind::String, name, flags) {}

  Variable* Clone() const override;
  void SetStringValue(const char* text, uint32_t len) override;
  void SetStringValue(const KelString& text) override;
  const char* GetStringValue() const override;
  int32_t GetBoolValue() const override;
  char GetCharValue() const override;
  uint32_t GetLength() override;
  virtual bool IsEString() const;
  VarString& operator=(const VarString&) = default;

 protected:
  VarString(tamber::Kind kind, const tamber::Name& name, uint32_t flags)
      : OrderedVariable(String, kind, name, flags) {}
  VarString(const VarString&) = default;

 private:
  TAMBER_LOCAL void SetText(std::string_view text);
};

namespace tamber {

/// The bytes meant by a pair of the interface: length 0 takes the string up to its NUL, null is
/// empty.
std::string_view GivenText(const char* text, uint32_t len);

/// Runs a change that may find no memory and then leaves the variable as it was: the operations of
/// Variable do not throw. Whoever must know uses the functions of cellops.h.
template <class Change>
bool Attempt(Change&& change) {
  try {
    change();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace tamber
