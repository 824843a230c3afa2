#include "kel/rediswire.h"

#include <hiredis/hiredis.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "kel/curllib.h"
#include "kel/lazylibrary.h"
#include "kel/stop.h"

namespace kel {
namespace {

LazyLibrary hiredis(KEL_SONAME_HIREDIS);
KEL_LAZY(hiredis, redisConnectWithTimeout);
KEL_LAZY(hiredis, redisFree);

constexpr const char* kClosed = "the server closed the connection";
constexpr const char* kSilent = "the server does not answer in time";

struct FreeConnection {
  void operator()(redisContext* connection) const { redisFree(connection); }
};

/// Waits until the socket is ready, looking for a stop meanwhile; false when that takes longer.
bool WaitFor(int socket, short event, int milliseconds) {
  constexpr int kMillisecondsPerLook = 10;
  for (int left = milliseconds; left > 0;) {
    CheckStop();
    const int time = std::min(left, kMillisecondsPerLook);
    pollfd waiting{socket, event, 0};
    const int ready = ::poll(&waiting, 1, time);
    if (ready > 0) return true;
    if (ready == 0) left -= time;
    if (ready < 0 && errno != EINTR) return false;
  }
  return false;
}

class PlainWire final : public RedisWire {
 public:
  PlainWire(redisContext* connection, int milliseconds)
      : connection_(connection), milliseconds_(milliseconds) {}

  bool Send(std::string_view bytes) override {
    while (!bytes.empty()) {
      CheckStop();
      const ssize_t count = ::send(connection_->fd, bytes.data(),
                                   std::min(bytes.size(), kBytesPerStep), kNow | MSG_NOSIGNAL);
      if (count < 0 && !MayGoOn(POLLOUT)) return false;
      if (count > 0) bytes.remove_prefix(static_cast<size_t>(count));
    }
    return true;
  }

  size_t Receive(char* buffer, size_t size) override {
    for (;;) {
      const ssize_t count = ::recv(connection_->fd, buffer, size, kNow);
      if (count > 0) return static_cast<size_t>(count);
      if (count == 0) fault = kClosed;
      if (count == 0 || !MayGoOn(POLLIN)) return 0;
    }
  }

 private:
  static constexpr int kNow = MSG_DONTWAIT;

  /// After an attempt that has failed: whether it should be made again, now that there is a point.
  bool MayGoOn(short event) {
    if (errno == EINTR) return true;
    const bool waits = errno == EAGAIN || errno == EWOULDBLOCK;
    if (!waits) fault = std::strerror(errno);
    if (!waits || WaitFor(connection_->fd, event, milliseconds_)) return waits;
    fault = kSilent;
    return false;
  }

  std::unique_ptr<redisContext, FreeConnection> connection_;
  int milliseconds_;
};

/// The client library of Debian has no TLS; the one for transfers makes connections with it and
/// hands them over.
class SecureWire final : public RedisWire {
 public:
  SecureWire(const CurlLibrary& curl, int milliseconds)
      : curl_(curl), handle_(curl.easyInit()), milliseconds_(milliseconds) {}
  SecureWire(const SecureWire&) = delete;
  SecureWire& operator=(const SecureWire&) = delete;
  ~SecureWire() override { curl_.easyCleanup(handle_); }

  bool Connect(const ServerAddress& address, const StoreAccess& access) {
    if (handle_ == nullptr) return Fail("out of memory");
    const bool isNumeric6 = address.host.find(':') != std::string::npos;
    const std::string host = isNumeric6 ? "[" + address.host + "]" : address.host;
    Set(CURLOPT_URL, ("https://" + host).c_str());
    Set(CURLOPT_PORT, static_cast<long>(address.port));
    Set(CURLOPT_CONNECT_ONLY, 1L);
    Set(CURLOPT_PROXY, "");
    Set(CURLOPT_SSL_ENABLE_ALPN, 0L);
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(milliseconds_));
    if (!access.caFile.empty()) {
      Set(CURLOPT_CAINFO, access.caFile.c_str());
      Set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
    if (!access.certFile.empty()) Set(CURLOPT_SSLCERT, access.certFile.c_str());
    if (!access.keyFile.empty()) Set(CURLOPT_SSLKEY, access.keyFile.c_str());
    char message[CURL_ERROR_SIZE] = "";
    Set(CURLOPT_ERRORBUFFER, message);
    const CURLcode code = curl_.easyPerform(handle_);
    Set(CURLOPT_ERRORBUFFER, static_cast<char*>(nullptr));
    if (code != CURLE_OK) return Fail(message[0] != '\0' ? message : "no connection by TLS");
    return curl_.easyGetinfo(handle_, CURLINFO_ACTIVESOCKET, &socket_) == CURLE_OK || Fail(kClosed);
  }

  bool Send(std::string_view bytes) override {
    while (!bytes.empty()) {
      size_t count = 0;
      const CURLcode code = curl_.easySend(handle_, bytes.data(), bytes.size(), &count);
      if (code == CURLE_AGAIN ? !WaitFor(POLLOUT) : code != CURLE_OK) return Fail(kClosed);
      bytes.remove_prefix(count);
    }
    return true;
  }

  size_t Receive(char* buffer, size_t size) override {
    for (;;) {
      size_t count = 0;
      const CURLcode code = curl_.easyRecv(handle_, buffer, size, &count);
      if (code == CURLE_OK && count > 0) return count;
      if (code == CURLE_AGAIN && WaitFor(POLLIN)) continue;
      Fail(code == CURLE_AGAIN ? kSilent : kClosed);
      return 0;
    }
  }

 private:
  template <class Value>
  void Set(CURLoption option, Value value) {
    curl_.easySetopt(handle_, option, value);
  }

  bool WaitFor(short event) const { return kel::WaitFor(socket_, event, milliseconds_); }

  bool Fail(const char* why) {
    fault = why;
    return false;
  }

  const CurlLibrary& curl_;
  CURL* handle_;
  curl_socket_t socket_ = CURL_SOCKET_BAD;
  int milliseconds_;
};

}  // namespace

std::unique_ptr<RedisWire> ConnectPlain(const ServerAddress& address, int milliseconds,
                                        std::string& fault) {
  const timeval time{milliseconds / 1000, (milliseconds % 1000) * 1000};
  std::unique_ptr<redisContext, FreeConnection> connection(
      redisConnectWithTimeout(address.host.c_str(), address.port, time));
  if (connection != nullptr && connection->err == REDIS_OK) {
    return std::make_unique<PlainWire>(connection.release(), milliseconds);
  }
  fault = connection != nullptr ? connection->errstr : "out of memory";
  return nullptr;
}

std::unique_ptr<RedisWire> ConnectSecure(const ServerAddress& address, const StoreAccess& access,
                                         std::string& fault) {
  const CurlLibrary* const curl = Curl();
  if (curl == nullptr) {
    fault = "a library is missing";
    return nullptr;
  }
  auto wire = std::make_unique<SecureWire>(*curl, access.milliseconds);
  if (wire->Connect(address, access)) return wire;
  fault = wire->fault;
  return nullptr;
}

}  // namespace kel
