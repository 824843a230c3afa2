#include "kel/textcipher.h"

#include <nettle/cbc.h>
#include <nettle/des.h>
#include <nettle/hmac.h>
#include <nettle/memops.h>
#include <nettle/pbkdf2.h>
#include <nettle/sha2.h>
#include <sodium.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "kel/cipher.h"
#include "kel/lazylibrary.h"
#include "kel/longstring.h"
#include "kel/stop.h"

namespace kel {
namespace {

LazyLibrary sodium(KEL_SONAME_LIBSODIUM);
KEL_LAZY(sodium, crypto_generichash);
KEL_LAZY(sodium, crypto_generichash_init);
KEL_LAZY(sodium, crypto_generichash_update);
KEL_LAZY(sodium, crypto_generichash_final);
KEL_LAZY(sodium, crypto_aead_xchacha20poly1305_ietf_encrypt);
KEL_LAZY(sodium, crypto_aead_xchacha20poly1305_ietf_decrypt);
LazyLibrary nettle(KEL_SONAME_NETTLE);
KEL_LAZY(nettle, cbc_encrypt);
KEL_LAZY(nettle, cbc_decrypt);
KEL_LAZY(nettle, des_set_key);
KEL_LAZY(nettle, des_encrypt);
KEL_LAZY(nettle, des_decrypt);
KEL_LAZY(nettle, hmac_sha256_set_key);
KEL_LAZY(nettle, hmac_sha256_update);
KEL_LAZY(nettle, hmac_sha256_digest);
KEL_LAZY(nettle, pbkdf2_hmac_sha256);
KEL_LAZY(nettle, sha256_init);
KEL_LAZY(nettle, sha256_update);
KEL_LAZY(nettle, sha256_digest);
KEL_LAZY(nettle, memeql_sec);

constexpr size_t kBlock = DES_BLOCK_SIZE;
/// Between two looks for a stop; whole blocks.
constexpr size_t kBytesPerLook = size_t{256} * 1024;
constexpr size_t kSaltSize = 8;
constexpr size_t kProofSize = 16;

template <size_t Size>
struct Secret {
  std::array<uint8_t, Size> bytes{};
  Secret() = default;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret() { Wipe(bytes.data(), Size); }
  std::string_view View(size_t from, size_t count) const {
    return {reinterpret_cast<const char*>(bytes.data()) + from, count};
  }
};

const uint8_t* Bytes(std::string_view text) {
  static const uint8_t empty = 0;
  return text.empty() ? &empty : reinterpret_cast<const uint8_t*>(text.data());
}
uint8_t* Bytes(std::string& text) { return reinterpret_cast<uint8_t*>(text.data()); }

struct DesState {
  struct CBC_CTX(des_ctx, DES_BLOCK_SIZE) cbc;

  DesState(std::string_view key, std::string_view start) {
    // A weak key is reported and set nevertheless; a caller's key is the caller's choice.
    (void)des_set_key(&cbc.ctx, Bytes(key));
    CBC_SET_IV(&cbc, Bytes(start));
  }
  DesState(const DesState&) = delete;
  DesState& operator=(const DesState&) = delete;
  ~DesState() { Wipe(&cbc, sizeof cbc); }
};

/// Fills up to whole blocks with 1 to 8 bytes that tell their number.
std::string Padded(std::string_view plain) {
  const size_t fill = kBlock - plain.size() % kBlock;
  std::string padded;
  padded.reserve(plain.size() + fill);
  Append(padded, plain);
  return padded.append(fill, static_cast<char>(fill));
}

bool RemovePadding(std::string& text) {
  const size_t fill = text.empty() ? 0 : static_cast<unsigned char>(text.back());
  if (fill == 0 || fill > kBlock || fill > text.size()) return false;
  const size_t kept = text.size() - fill;
  if (text.find_first_not_of(static_cast<char>(fill), kept) != std::string::npos) return false;
  text.resize(kept);
  return true;
}

std::string_view Digest(std::string_view text, Secret<SHA256_DIGEST_SIZE>& digest) {
  sha256_ctx context;
  sha256_init(&context);
  ForSteps(0, text.size(), kBytesPerStep, [&](uint64_t at, uint64_t end) {
    sha256_update(&context, end - at, Bytes(text) + at);
    return true;
  });
  sha256_digest(&context, digest.bytes.size(), digest.bytes.data());
  return digest.View(0, digest.bytes.size());
}

/// What a password and a salt give: DES key, start vector, key of the proof.
class PasswordKeys {
 public:
  PasswordKeys(std::string_view password, std::string_view salt) {
    // A key of more than a block stands for its digest, which is made in steps here.
    Secret<SHA256_DIGEST_SIZE> digest;
    if (password.size() > SHA256_BLOCK_SIZE) password = Digest(password, digest);
    pbkdf2_hmac_sha256(password.size(), Bytes(password), kDesRounds, salt.size(), Bytes(salt),
                       keys_.bytes.size(), keys_.bytes.data());
  }
  std::string_view DesKey() const { return keys_.View(0, 8); }
  std::string_view Start() const { return keys_.View(8, 8); }
  std::string Proof(std::string_view text) const {
    hmac_sha256_ctx context;
    hmac_sha256_set_key(&context, 32, keys_.bytes.data() + 16);
    try {
      ForSteps(0, text.size(), kBytesPerStep, [&](uint64_t at, uint64_t end) {
        hmac_sha256_update(&context, end - at, Bytes(text) + at);
        return true;
      });
    } catch (const Interrupted&) {
      Wipe(&context, sizeof context);
      throw;
    }
    std::string proof(kProofSize, '\0');
    hmac_sha256_digest(&context, proof.size(), Bytes(proof));
    Wipe(&context, sizeof context);
    return proof;
  }

 private:
  Secret<48> keys_;
};

/// The fixed keys: three pieces are mixed when they are first needed, so that no key stands in the
/// library as such. 32 bytes for the stream cipher, 32 for nonces, 8 for DES.
class FixedKeys {
 public:
  FixedKeys() {
    constexpr std::string_view kPieces[] = {"Tamber texts ", "for the shelf, ", "not the vault."};
    InitCrypto();
    crypto_generichash_state state;
    crypto_generichash_init(&state, nullptr, 0, crypto_generichash_BYTES_MAX);
    for (const std::string_view piece : kPieces) {
      crypto_generichash_update(&state, Bytes(piece), piece.size());
    }
    Secret<crypto_generichash_BYTES_MAX> seed;
    crypto_generichash_final(&state, seed.bytes.data(), seed.bytes.size());
    crypto_generichash(keys_.bytes.data(), 64, seed.bytes.data(), 32, nullptr, 0);
    crypto_generichash(keys_.bytes.data() + 64, 16, seed.bytes.data() + 32, 32, nullptr, 0);
  }
  const uint8_t* StreamKey() const { return keys_.bytes.data(); }
  std::string_view DesKey() const { return keys_.View(64, 8); }
  /// Made from the text itself: equal texts give equal results, different ones never share it.
  std::string NonceFor(std::string_view plain, size_t size) const {
    std::array<uint8_t, crypto_generichash_BYTES> digest{};
    crypto_generichash_state state;
    crypto_generichash_init(&state, keys_.bytes.data() + 32, 32, digest.size());
    ForSteps(0, plain.size(), kBytesPerStep, [&](uint64_t at, uint64_t end) {
      crypto_generichash_update(&state, Bytes(plain) + at, end - at);
      return true;
    });
    crypto_generichash_final(&state, digest.data(), digest.size());
    return {reinterpret_cast<const char*>(digest.data()), std::min(size, digest.size())};
  }
  static const FixedKeys& Get() {
    static const FixedKeys keys;
    return keys;
  }

 private:
  Secret<80> keys_;
};

constexpr size_t kNonceSize = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr size_t kTagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;

std::string StreamSeal(std::string_view plain) {
  const FixedKeys& keys = FixedKeys::Get();
  std::string sealed = keys.NonceFor(plain, kNonceSize);
  Resize(sealed, kNonceSize + plain.size() + kTagSize);
  crypto_aead_xchacha20poly1305_ietf_encrypt(Bytes(sealed) + kNonceSize, nullptr, Bytes(plain),
                                             plain.size(), nullptr, 0, nullptr, Bytes(sealed),
                                             keys.StreamKey());
  return sealed;
}

bool StreamOpen(std::string_view sealed, std::string& plain) {
  if (sealed.size() < kNonceSize + kTagSize) return false;
  Resize(plain, sealed.size() - kNonceSize - kTagSize);
  const bool valid =
      crypto_aead_xchacha20poly1305_ietf_decrypt(
          Bytes(plain), nullptr, nullptr, Bytes(sealed) + kNonceSize, sealed.size() - kNonceSize,
          nullptr, 0, Bytes(sealed), FixedKeys::Get().StreamKey()) == 0;
  if (!valid) plain.clear();
  return valid;
}

}  // namespace

std::string DesCbcEncrypt(std::string_view key, std::string_view start, std::string_view blocks) {
  DesState state(key, start);
  std::string out;
  Resize(out, blocks.size());
  for (size_t at = 0; at < blocks.size(); at += kBytesPerLook) {
    CheckStop();
    const std::string_view part = blocks.substr(at, kBytesPerLook);
    CBC_ENCRYPT(&state.cbc, des_encrypt.Address(), part.size(), Bytes(out) + at, Bytes(part));
  }
  return out;
}

std::string DesCbcDecrypt(std::string_view key, std::string_view start, std::string_view blocks) {
  DesState state(key, start);
  std::string out;
  Resize(out, blocks.size());
  for (size_t at = 0; at < blocks.size(); at += kBytesPerLook) {
    CheckStop();
    const std::string_view part = blocks.substr(at, kBytesPerLook);
    CBC_DECRYPT(&state.cbc, des_decrypt.Address(), part.size(), Bytes(out) + at, Bytes(part));
  }
  return out;
}

std::string DesSeal(std::string_view plain, std::string_view password) {
  const uint64_t nonce = RandomNonce();
  std::string sealed(kSaltSize, '\0');
  std::memcpy(sealed.data(), &nonce, kSaltSize);
  const PasswordKeys keys(password, sealed);
  Append(sealed, DesCbcEncrypt(keys.DesKey(), keys.Start(), Padded(plain)));
  return sealed += keys.Proof(sealed);
}

bool DesOpen(std::string_view sealed, std::string_view password, std::string& plain) {
  plain.clear();
  if (sealed.size() < kSaltSize + kBlock + kProofSize) return false;
  const std::string_view signedPart = sealed.substr(0, sealed.size() - kProofSize);
  const std::string_view blocks = signedPart.substr(kSaltSize);
  if (blocks.size() % kBlock != 0) return false;
  const PasswordKeys keys(password, sealed.substr(0, kSaltSize));
  const std::string proof = keys.Proof(signedPart);
  if (memeql_sec(proof.data(), sealed.data() + signedPart.size(), kProofSize) == 0) return false;
  plain = DesCbcDecrypt(keys.DesKey(), keys.Start(), blocks);
  return RemovePadding(plain);
}

std::string FixedSeal(std::string_view plain, FixedCipher cipher) {
  if (cipher == FixedCipher::kXChaCha20) return StreamSeal(plain);
  const FixedKeys& keys = FixedKeys::Get();
  std::string sealed = keys.NonceFor(plain, kBlock);
  const std::string start = sealed;
  Append(sealed, DesCbcEncrypt(keys.DesKey(), start, Padded(plain)));
  return sealed;
}

bool FixedOpen(std::string_view sealed, FixedCipher cipher, std::string& plain) {
  plain.clear();
  if (cipher == FixedCipher::kXChaCha20) return StreamOpen(sealed, plain);
  if (sealed.size() < 2 * kBlock || sealed.size() % kBlock != 0) return false;
  plain = DesCbcDecrypt(FixedKeys::Get().DesKey(), sealed.substr(0, kBlock), sealed.substr(kBlock));
  if (RemovePadding(plain)) return true;
  plain.clear();
  return false;
}

}  // namespace kel
