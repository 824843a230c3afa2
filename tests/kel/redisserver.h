#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

/// A redis-server of our own on a free port of the loopback device, without files; gone at the end.
class RedisServer {
 public:
  /// `options` for the server come behind those for a plain one; `secure`: by TLS only.
  explicit RedisServer(std::vector<std::string> options = {}, bool secure = false)
      : options_(std::move(options)), secure_(secure), port_(FreePort()) {
    Start();
  }
  RedisServer(const RedisServer&) = delete;
  RedisServer& operator=(const RedisServer&) = delete;
  ~RedisServer() { Stop(); }

  std::string Url(const std::string& user = "") const {
    return (secure_ ? "rediss://" : "redis://") + user + "127.0.0.1:" + std::to_string(port_) +
           "/0";
  }
  bool IsUp() const { return process_ > 0; }

  void Start() {
    const std::string port = std::to_string(port_);
    std::vector<std::string> words{"redis-server",
                                   "--bind",
                                   "127.0.0.1",
                                   "--save",
                                   "",
                                   "--appendonly",
                                   "no",
                                   "--port",
                                   secure_ ? "0" : port,
                                   "--tls-port",
                                   secure_ ? port : "0"};
    words.insert(words.end(), options_.begin(), options_.end());
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    process_ = ::fork();
    if (process_ == 0) {
      const int null = ::open("/dev/null", O_RDWR);
      ::dup2(null, 1);
      ::dup2(null, 2);
      ::execvp("redis-server", arguments.data());
      ::_exit(127);
    }
    for (int i = 0; i < 500 && !Answers(); ++i) {
      if (::waitpid(process_, nullptr, WNOHANG) == process_) {
        process_ = -1;
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  void Stop() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    process_ = -1;
  }

 private:
  static sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
  }

  static int FreePort() {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof(address);
    ::bind(socket, reinterpret_cast<sockaddr*>(&address), size);
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    ::close(socket);
    return ntohs(address.sin_port);
  }

  bool Answers() const {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(port_);
    const bool up =
        ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    ::close(socket);
    return up;
  }

  std::vector<std::string> options_;
  bool secure_;
  int port_;
  pid_t process_ = -1;
};
