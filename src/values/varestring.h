#pragma once

#include "values/varstring.h"

class TamberContext;

/// Script type "estring": a string that is encrypted in memory, in dumps and in sessions.
///
/// Getters return the plain string, so that scripts use it like any string; it stands in a buffer
/// of this variable that is wiped by the next getter, by a change and on destruction. Lengths are
/// those of the plain string.
class TAMBER_API VarEString : public VarString {
 public:
  VarEString(const KelString& name, uint32_t flags)
      : VarEString(tamber::Name(name.View()), flags) {}
  VarEString(const tamber::Name& name, uint32_t flags);
  ~VarEString() override;
  VarEString& operator=(const VarEString& other) {
    Variable::operator=(other);
    return *this;
  }

  Variable* Clone() const override;
  void SetStringValue(const char* text, uint32_t len) override;
  void SetStringValue(const KelString& text) override;
  const char* GetStringValue() const override;
  int32_t GetBoolValue() const override;
  char GetCharValue() const override;
  uint32_t GetLength() override;
  bool IsEString() const override;

  /// Encrypts the string anew, so that equal strings do not show as equal bytes.
  void EncryptString(TamberContext* context);

  /// Takes a string. Throws std::bad_alloc and keeps the old one then.
  void SetPlain(std::string_view text);
  /// Threads may copy this variable from now on; it is not changed again.
  void KeepTextForever();
  /// Shares the encrypted string of another.
  void ShareText(const VarEString& other);
  /// The plain string, in the buffer that getters use. Throws std::bad_alloc.
  std::string_view Plain() const;
  /// The encrypted bytes as they lie in memory, borrowed.
  std::string_view CipherBytes() const { return tamber::TextOf(cipher_); }
  /// What sessions keep: the number the cipher started from and the encrypted bytes.
  std::string Sealed() const;
  /// Takes what Sealed returned; false for bytes that cannot be such.
  bool SetSealed(std::string_view sealed);

 protected:
  VarEString(const VarEString& other);

 private:
  TAMBER_LOCAL void Replace(tamber::StrBuf* cipher, uint64_t nonce);
  TAMBER_LOCAL void ForgetPlain() const;
  TAMBER_LOCAL char FirstByte() const;

  uint64_t nonce_ = 0;
  tamber::StrBuf* cipher_ = nullptr;
  mutable tamber::StrBuf* plain_ = nullptr;
};
