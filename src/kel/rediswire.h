#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "kel/storeaddress.h"

namespace kel {

/// A connection to a server, plain or by TLS. It waits no longer for each piece than it was told,
/// and is of no more use once a stop has ended a wait.
class RedisWire {
 public:
  virtual ~RedisWire() = default;
  virtual bool Send(std::string_view bytes) = 0;
  /// The bytes that came, at least one; 0 when the connection ended or nothing came in time.
  virtual size_t Receive(char* buffer, size_t size) = 0;

  std::string fault;  ///< why the last of them failed
};

/// Null when there is no connection, which `fault` then explains.
std::unique_ptr<RedisWire> ConnectPlain(const ServerAddress& address, int milliseconds,
                                        std::string& fault);
std::unique_ptr<RedisWire> ConnectSecure(const ServerAddress& address, const StoreAccess& access,
                                         std::string& fault);

}  // namespace kel
