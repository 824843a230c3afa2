#include "kel/cipher.h"

#include <sodium.h>

#include <array>
#include <cstring>
#include <utility>

#include "kel/lazylibrary.h"

namespace kel {
namespace {

LazyLibrary sodium(KEL_SONAME_LIBSODIUM);
KEL_LAZY(sodium, sodium_init);
KEL_LAZY(sodium, sodium_memcmp);
KEL_LAZY(sodium, randombytes_buf);
KEL_LAZY(sodium, crypto_generichash);
KEL_LAZY(sodium, crypto_pwhash);
KEL_LAZY(sodium, crypto_stream_chacha20_xor);
KEL_LAZY(sodium, crypto_aead_xchacha20poly1305_ietf_encrypt);
KEL_LAZY(sodium, crypto_aead_xchacha20poly1305_ietf_decrypt);

constexpr std::string_view kMark = "\x89TSEAL1\n";
constexpr size_t kSaltSize = crypto_pwhash_SALTBYTES;
constexpr size_t kNonceSize = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr size_t kTagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr size_t kHeaderSize = kMark.size() + kSaltSize + kNonceSize;

static_assert(kHeaderSize + kTagSize == 64);

const unsigned char* Bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}

unsigned char* Bytes(char* text) { return reinterpret_cast<unsigned char*>(text); }

/// A key that is wiped when it goes.
template <size_t Size>
struct KeyBytes : std::array<unsigned char, Size> {
  KeyBytes() : std::array<unsigned char, Size>{} {}
  KeyBytes(const KeyBytes&) = delete;
  KeyBytes& operator=(const KeyBytes&) = delete;
  ~KeyBytes() { Wipe(this->data(), Size); }
};

using StreamKey = KeyBytes<crypto_stream_chacha20_KEYBYTES>;
using SealKey = KeyBytes<crypto_aead_xchacha20poly1305_ietf_KEYBYTES>;

/// The key of all estrings, mixed from two pieces so that it does not stand in the library as such.
struct EstringKey : StreamKey {
  EstringKey() {
    constexpr std::string_view kPieceA = "Tamber estring text, first form!";
    constexpr std::string_view kPieceB =
        "\x5A\xC3\x17\xE8\x90\x2D\x6B\xF4\x3E\xA1\x1B\xD7\x62\x4C\x85\xB9";
    InitCrypto();
    crypto_generichash(data(), size(), Bytes(kPieceA.data()), kPieceA.size(), Bytes(kPieceB.data()),
                       kPieceB.size());
  }
};

const StreamKey& GetEstringKey() {
  // Left to the end of the process: a host's static objects may hold estrings.
  static const EstringKey* const key = new EstringKey;
  return *key;
}

/// The last key that this thread derived. The pass phrase is remembered by its digest only.
class DerivedKey {
 public:
  /// Null when there is not enough memory to derive it.
  const SealKey* Get(const unsigned char* salt, std::string_view passphrase) {
    if (passphrase.empty()) passphrase = "";  // the library wants a pointer all the same
    KeyBytes<crypto_generichash_BYTES> digest;
    crypto_generichash(digest.data(), digest.size(), Bytes(passphrase.data()), passphrase.size(),
                       salt, kSaltSize);
    if (filled_ && sodium_memcmp(digest.data(), digest_.data(), digest.size()) == 0) return &key_;
    filled_ = crypto_pwhash(key_.data(), key_.size(), passphrase.data(), passphrase.size(), salt,
                            crypto_pwhash_OPSLIMIT_INTERACTIVE, crypto_pwhash_MEMLIMIT_INTERACTIVE,
                            crypto_pwhash_ALG_ARGON2ID13) == 0;
    static_cast<std::array<unsigned char, crypto_generichash_BYTES>&>(digest_) = digest;
    return filled_ ? &key_ : nullptr;
  }

 private:
  bool filled_ = false;
  KeyBytes<crypto_generichash_BYTES> digest_;
  SealKey key_;
};

const SealKey* DeriveKey(const unsigned char* salt, std::string_view passphrase) {
  thread_local DerivedKey last;
  return last.Get(salt, passphrase);
}

}  // namespace

bool InitCrypto() {
  static const bool ready = sodium_init() >= 0;
  return ready;
}

void CipherInPlace(uint64_t nonce, char* data, size_t length) {
  if (length == 0) return;  // an empty text may have no memory at all
  std::array<unsigned char, crypto_stream_chacha20_NONCEBYTES> bytes;
  for (auto& byte : bytes) {
    byte = static_cast<unsigned char>(nonce & 0xFF);
    nonce >>= 8;
  }
  crypto_stream_chacha20_xor(Bytes(data), Bytes(data), length, bytes.data(),
                             GetEstringKey().data());
}

uint64_t RandomNonce() {
  InitCrypto();
  uint64_t nonce = 0;
  randombytes_buf(&nonce, sizeof nonce);
  return nonce;
}

void Wipe(void* data, size_t length) {
  if (length != 0) ::explicit_bzero(data, length);
}

std::string SealText(std::string_view plain, std::string_view passphrase) {
  if (!InitCrypto()) return {};
  std::string sealed(kHeaderSize + plain.size() + kTagSize, '\0');
  kMark.copy(sealed.data(), kMark.size());
  unsigned char* const salt = Bytes(sealed.data()) + kMark.size();
  unsigned char* const nonce = salt + kSaltSize;
  randombytes_buf(salt, kSaltSize + kNonceSize);
  const SealKey* const key = DeriveKey(salt, passphrase);
  if (key == nullptr) return {};
  // Mark and salt are authenticated as well, so that no byte of the file can change unseen.
  crypto_aead_xchacha20poly1305_ietf_encrypt(
      Bytes(sealed.data()) + kHeaderSize, nullptr, Bytes(plain.data()), plain.size(),
      Bytes(sealed.data()), kMark.size() + kSaltSize, nullptr, nonce, key->data());
  return sealed;
}

bool OpenSealed(std::string_view sealed, std::string_view passphrase, std::string& plain) {
  if (!IsSealed(sealed) || sealed.size() < kHeaderSize + kTagSize || !InitCrypto()) {
    plain.clear();
    return false;
  }
  const unsigned char* const salt = Bytes(sealed.data()) + kMark.size();
  const SealKey* const key = DeriveKey(salt, passphrase);
  std::string text(sealed.size() - kHeaderSize - kTagSize, '\0');
  const bool good = key != nullptr &&
                    crypto_aead_xchacha20poly1305_ietf_decrypt(
                        Bytes(text.data()), nullptr, nullptr, Bytes(sealed.data()) + kHeaderSize,
                        sealed.size() - kHeaderSize, Bytes(sealed.data()), kMark.size() + kSaltSize,
                        salt + kSaltSize, key->data()) == 0;
  if (!good) text.clear();
  plain = std::move(text);
  return good;
}

bool IsSealed(std::string_view bytes) { return bytes.starts_with(kMark); }

}  // namespace kel
