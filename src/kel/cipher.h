#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Ciphers for the texts of `estring` values and for scripts that are delivered enciphered.
namespace kel {

/// Prepares the cipher library, once per process and safely from any thread; everything below calls
/// it by itself. False when the system offers no randomness.
bool InitCrypto();

/// Enciphers bytes where they stand; doing it again with the same nonce deciphers them.
///
/// The key is the same in every process and can be found in the library by whoever looks for it,
/// since a session that one process saved must be readable in another. This keeps secrets out of
/// memory dumps, logs and stores that are read in passing. It does not protect against somebody who
/// has this library and the cipher text, and it does not notice changed bytes. Two texts enciphered
/// under one nonce give away where they differ: take a new one for every text.
void CipherInPlace(uint64_t nonce, char* data, size_t length);

/// A nonce for a new text, from the system's randomness.
uint64_t RandomNonce();

/// Overwrites memory in a way that the compiler does not leave out.
void Wipe(void* data, size_t length);

/// Enciphers and authenticates a text under a pass phrase: a mark, salt, nonce and cipher text, 64
/// bytes longer than the text. "" when the memory that deriving the key takes (64 MiB) is not
/// there.
///
/// Deriving a key is slow on purpose, about a tenth of a second. The key of the last salt and pass
/// phrase is kept per thread, and wiped when another takes its place or the thread ends.
std::string SealText(std::string_view plain, std::string_view passphrase);

/// Undoes `SealText`. False for another pass phrase and for bytes that were changed, cut or are no
/// sealed text at all; `plain` is then empty.
bool OpenSealed(std::string_view sealed, std::string_view passphrase, std::string& plain);

/// Whether the bytes begin with the mark of a sealed text.
bool IsSealed(std::string_view bytes);

}  // namespace kel
