#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kel/export.h"

/// A store of values under string keys ("session/7/counter") that outlives the process.
///
/// An operation returns false when the key is absent or the store failed; outputs are then
/// untouched. Strings are bytes with a length, NULs included. One thread at a time.
class TAMBER_API SessionStore {
 public:
  virtual ~SessionStore() = default;
  virtual bool SetInteger(std::string_view key, int64_t value) = 0;
  virtual bool SetText(std::string_view key, std::string_view value) = 0;
  virtual bool GetInteger(std::string_view key, int64_t& value) = 0;
  virtual bool GetText(std::string_view key, std::string& value) = 0;
  virtual bool Exists(std::string_view key) = 0;
  /// The whole keys that begin with `prefix`.
  virtual std::vector<std::string> SubKeys(std::string_view prefix) = 0;
  /// Removes every key that begins with `prefix`.
  virtual bool DeleteTree(std::string_view prefix) = 0;

  /// What stands directly below `prefix`, which ends in "/": the parts of the keys up to the next
  /// "/" and with it, each once; or up to the end of the key.
  virtual std::vector<std::string> Children(std::string_view prefix);
  /// Changes between the two take effect together, at Commit: others, also after this process was
  /// killed, see all of them or none. Reads in between do not see them.
  virtual void Begin() {}
  virtual bool Commit() { return true; }
  /// Between the two, what lies below `prefix` may be read as it was at the first look at it, so
  /// that a server is asked once for a session and not for each of its values. Own changes are
  /// seen.
  virtual void BeginReading(std::string_view /*prefix*/) {}
  virtual void EndReading() {}
  /// Why an operation has failed since the last call; "" when none has.
  virtual std::string TakeFault() { return {}; }
  /// Opens the place anew when something else stands there now, or nothing; true then: what was
  /// read from it may not be there any more.
  virtual bool Renew() { return false; }
};

namespace kel {

/// What a store needs beside its address.
struct StoreAccess {
  std::string user;          ///< before one in the address
  std::string password;      ///< before one in the address
  std::string caFile;        ///< trusted certificates in PEM form; "": those of the system
  std::string certFile;      ///< own certificate in PEM form, if the server wants one
  std::string keyFile;       ///< its key
  bool isServer = false;     ///< what is named is no file, whatever it looks like
  int milliseconds = 1000;   ///< to wait for a server, or for a file that somebody has locked
  bool isRefused = false;    ///< the host's policy lets nothing be opened
  bool followsLinks = true;  ///< of a file: a symbolic link may lead to it

  auto operator<=>(const StoreAccess&) const = default;
};

/// Whether the string is an address, "kind:...", and not the name of a file: a file whose name
/// begins so is written "./kind:...".
bool IsStoreAddress(std::string_view text);
/// An address without user and password; other strings as they are.
std::string ShownStoreAddress(std::string_view text);

/// Opens the store that `spec` names: "redis://host:port/db" or "rediss://..." a server, what is no
/// address a file. Never null, and never fails: what cannot be opened, addresses of other kinds
/// among them, is an empty store that takes nothing and says why.
TAMBER_API std::shared_ptr<SessionStore> OpenSessionStore(std::string_view spec);
std::shared_ptr<SessionStore> OpenSessionStore(std::string_view spec, const StoreAccess& access);

}  // namespace kel
