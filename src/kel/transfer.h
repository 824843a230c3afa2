#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kel/filepolicy.h"

/// Files by URL: http, https, ftp, ftps and sftp, and smb where the system's library has it.
///
/// Certificates and host keys are checked. Nothing waits for ever, and all of it looks for a stop
/// (kel/stop.h) many times a second. No text that comes out of here holds the user name, password
/// or query of a URL.
namespace kel {

enum class TransferStatus {
  Ok,
  Connect,      ///< no such host, nobody answers, no answer in time, or not who it claims to be;
                ///< of a deletion also when the answer is lost: the file may be there or not
  Login,        ///< the server wants to know who it is talking to, or does not know the user
  Password,     ///< the server refuses user and password
  ShareName,    ///< the server refuses the share
  GetFile,      ///< reading from the source failed, half-way perhaps
  PutFile,      ///< writing to the destination failed
  GetLimit,     ///< what was read took longer, or was larger, than the limits allow
  PutLimit,     ///< the same of what was written
  DelFile,      ///< the server refuses to delete
  BadFormat,    ///< not a URL
  BadProtocol,  ///< a scheme that is not served
  BadPath,      ///< the server has no such path
  Exists,       ///< there is a destination already
  LocalRead,    ///< reading the local file failed
  LocalWrite,   ///< writing the local file failed
};

/// What a text that a script gives for a file turns out to be.
enum class UrlKind {
  Path,       ///< a path of this machine; `path` holds it
  Remote,     ///< a URL that can be transferred
  Malformed,  ///< something with a known scheme that is no URL
  Unknown,    ///< a URL of a scheme that is not served
};
/// "file:" URLs are paths; a single letter before ":" is a drive.
UrlKind ClassifyUrl(std::string_view text, std::string& path);
/// The URL without user name, password, query and fragment, for messages.
std::string UrlWithoutSecrets(std::string_view url);

struct TransferLimits {
  int32_t connectSeconds = 30;
  int32_t stallSeconds = 60;  ///< without a single byte
  uint32_t seconds = 0;       ///< for all of a request; 0: as long as bytes come
  uint64_t bytes = 0;         ///< of the file; 0: any size
};

/// Fetches what the URL names behind the present end of an open file.
TransferStatus Download(const std::string& url, int descriptor, const TransferLimits& limits = {});
/// Sends the first `size` bytes of an open file, LocalRead when it has fewer. Unless `replace`, a
/// server that can refuses a name that is taken: Exists.
TransferStatus Upload(int descriptor, uint64_t size, const std::string& url, bool replace,
                      const TransferLimits& limits = {});
/// False for smb, whose files the transfer library can read and write only.
bool CanDeleteRemote(const std::string& url);
TransferStatus DeleteRemote(const std::string& url, const TransferLimits& limits = {});
/// Ok when nothing has the URL's name, or when the server keeps that to itself but will look again
/// as the name is given; Exists when something has it, or may have.
TransferStatus CheckFree(const std::string& url, const TransferLimits& limits = {});
/// Whether both URLs lead to the same server as the same user.
bool IsSameServer(const std::string& url, const std::string& other);
/// Gives a file another name on the same server.
TransferStatus RenameRemote(const std::string& url, const std::string& newUrl,
                            const TransferLimits& limits = {});

}  // namespace kel
