#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>
#include <vector>

/// A server from tests/servers that runs until this object goes; it says its port first and ends
/// with its standard input.
class TestServer {
 public:
  TestServer(const std::string& script, const std::vector<std::string>& args) {
    std::array<int, 2> in;
    std::array<int, 2> out;
    if (::pipe2(in.data(), O_CLOEXEC) != 0 || ::pipe2(out.data(), O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    std::string path = std::string(TAMBER_SOURCE_DIR "/tests/servers/") + script;
    std::vector<std::string> words = args;
    std::string python = "/usr/bin/python3";
    std::vector<char*> argv = {python.data(), path.data()};
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    if (::posix_spawn(&child_, python.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
      child_ = -1;
    }
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    input_ = in[1];
    ReadPort(out[0]);
    ::close(out[0]);
  }
  TestServer(const TestServer&) = delete;
  TestServer& operator=(const TestServer&) = delete;
  ~TestServer() {
    ::close(input_);
    if (child_ > 0) ::waitpid(child_, nullptr, 0);
  }

  /// False where the server's package is not installed.
  bool IsUp() const { return port_ > 0; }
  std::string Port() const { return std::to_string(port_); }

 private:
  void ReadPort(int descriptor) {
    std::string text;
    pollfd waiting{descriptor, POLLIN, 0};
    char c = 0;
    while (::poll(&waiting, 1, 20000) > 0 && ::read(descriptor, &c, 1) == 1 && c != '\n') {
      text += c;
    }
    port_ = c == '\n' ? std::atoi(text.c_str()) : 0;
  }

  pid_t child_ = -1;
  int input_ = -1;
  int port_ = 0;
};
