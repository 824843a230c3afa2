#include "values/varestring.h"

#include <cstring>
#include <memory>

#include "kel/cipher.h"
#include "values/cellops.h"

using tamber::Kind;
using tamber::StrBuf;

namespace {

void ReleaseText(StrBuf* text) {
  if (text != nullptr) tamber::Release(text);
}

}  // namespace

// The cell of an enciphered string is the variable itself, so that elements and members of the kind
// can hold it; it is no holder of its own.
VarEString::VarEString(const tamber::Name& name, uint32_t flags)
    : VarString(Kind::EString, name, flags) {
  cell_.v = this;
}

VarEString::VarEString(const VarEString& other) : VarString(other) {
  cell_.v = this;
  ShareText(other);
}

VarEString::~VarEString() {
  cell_.v = nullptr;
  ForgetPlain();
  ReleaseText(cipher_);
}

Variable* VarEString::Clone() const { return new VarEString(*this); }

void VarEString::SetStringValue(const char* text, uint32_t len) {
  tamber::Attempt([&] { SetPlain(tamber::GivenText(text, len)); });
}

void VarEString::SetStringValue(const KelString& text) {
  tamber::Attempt([&] { SetPlain(text.View()); });
}

const char* VarEString::GetStringValue() const {
  const char* text = "";
  tamber::Attempt([&] { text = Plain().data(); });
  return text;
}

int32_t VarEString::GetBoolValue() const { return GetCharValue() != 0; }

char VarEString::GetCharValue() const {
  char first = 0;
  tamber::Attempt([&] { first = FirstByte(); });
  return first;
}

uint32_t VarEString::GetLength() { return cipher_ != nullptr ? cipher_->length : 0; }
bool VarEString::IsEString() const { return true; }

void VarEString::EncryptString(TamberContext*) {
  tamber::Attempt([&] { SetPlain(Plain()); });
}

void VarEString::SetPlain(std::string_view text) {
  if (text.empty()) return Replace(nullptr, 0);
  const uint64_t nonce = kel::RandomNonce();
  std::unique_ptr<StrBuf, void (*)(StrBuf*)> cipher(StrBuf::New(text), ReleaseText);
  cipher->flags |= StrBuf::kSecret;  // it stays plain when it cannot be enciphered
  kel::CipherInPlace(nonce, cipher->Data(), cipher->length);
  Replace(cipher.release(), nonce);
}

void VarEString::ShareText(const VarEString& other) {
  if (other.cipher_ != nullptr) tamber::Retain(other.cipher_);
  Replace(other.cipher_, other.nonce_);
}

void VarEString::KeepTextForever() {
  if (cipher_ != nullptr) cipher_->refs = -1;
}

void VarEString::Replace(StrBuf* cipher, uint64_t nonce) {
  ForgetPlain();
  ReleaseText(cipher_);
  cipher_ = cipher;
  nonce_ = nonce;
}

std::string_view VarEString::Plain() const {
  if (cipher_ == nullptr) return tamber::TextOf(nullptr);
  ForgetPlain();
  plain_ = StrBuf::New(cipher_->View());
  plain_->flags |= StrBuf::kSecret;
  kel::CipherInPlace(nonce_, plain_->Data(), plain_->length);
  return plain_->View();
}

void VarEString::ForgetPlain() const {
  ReleaseText(plain_);
  plain_ = nullptr;
}

char VarEString::FirstByte() const {
  if (cipher_ == nullptr) return 0;
  char first = cipher_->Data()[0];
  kel::CipherInPlace(nonce_, &first, 1);
  return first;
}

std::string VarEString::Sealed() const {
  std::string sealed;
  for (unsigned shift = 0; shift < 64; shift += 8) {
    sealed.push_back(static_cast<char>((nonce_ >> shift) & 0xFF));
  }
  sealed.append(CipherBytes());
  return sealed;
}

bool VarEString::SetSealed(std::string_view sealed) {
  if (sealed.size() < sizeof(uint64_t)) return false;
  uint64_t nonce = 0;
  for (unsigned i = 0; i < sizeof nonce; ++i) {
    nonce |= uint64_t{static_cast<unsigned char>(sealed[i])} << (8 * i);
  }
  sealed.remove_prefix(sizeof nonce);
  Replace(sealed.empty() ? nullptr : StrBuf::New(sealed), nonce);
  return true;
}
