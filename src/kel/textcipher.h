#pragma once

#include <string>
#include <string_view>

/// The ciphers that built-ins offer to scripts, over any bytes.
namespace kel {

/// DES in cipher block chaining over whole blocks of 8 bytes; key and start vector of 8 bytes each.
/// Parity bits of the key do not matter.
std::string DesCbcEncrypt(std::string_view key, std::string_view start, std::string_view blocks);
std::string DesCbcDecrypt(std::string_view key, std::string_view start, std::string_view blocks);

/// Enciphers any bytes with DES under a password.
///
/// The result is: 8 bytes of salt, the text (padded to whole blocks by bytes that tell how many
/// they are) in DES-CBC, and the first 16 bytes of an HMAC-SHA256 over both. PBKDF2-HMAC-SHA256
/// with `kDesRounds` rounds over password and salt gives, in this order, the DES key (8), the start
/// vector (8) and the key of the HMAC (32).
///
/// DES has 56 key bits: whoever has the text and some hardware can read it without the password.
/// It is here for those who must exchange it; the HMAC only tells a wrong password and damage.
std::string DesSeal(std::string_view plain, std::string_view password);
/// Undoes `DesSeal`. False for another password and for bytes that were changed or cut.
bool DesOpen(std::string_view sealed, std::string_view password, std::string& plain);
inline constexpr unsigned kDesRounds = 4096;

/// Ciphers under the library's own fixed key.
enum class FixedCipher : unsigned char {
  kXChaCha20,  ///< authenticated; 24 bytes of nonce, cipher text, 16 bytes of proof
  kDes,        ///< 8 bytes of start vector, cipher text
};
/// Enciphers under a key that is the same everywhere. Equal texts give equal results, so that they
/// can be compared; whoever has this library can read them.
std::string FixedSeal(std::string_view plain, FixedCipher cipher);
/// Undoes `FixedSeal`; false for bytes that it did not make.
bool FixedOpen(std::string_view sealed, FixedCipher cipher, std::string& plain);

}  // namespace kel
