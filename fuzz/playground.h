#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "kel/filepolicy.h"

namespace fuzz {

/// The two directories of a fuzzer, made for it alone: the one that scripts may use, which is the
/// current one while they run, and one with the host's configuration and sessions.
class Playground {
 public:
  static Playground& Get() {
    static Playground playground;
    return playground;
  }
  Playground(const Playground&) = delete;
  Playground& operator=(const Playground&) = delete;
  ~Playground() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  std::string IniPath() const { return root_ / "host/tamber.ini"; }
  std::string SessionPath() const { return root_ / "host/TamberSessions"; }
  const kel::FilePolicy& Policy() const { return policy_; }

  void Enter() const { std::filesystem::current_path(scripts_); }
  /// Goes back to where the fuzzer was started; the next input finds nothing of what this one left.
  void Leave() const {
    std::filesystem::current_path(outside_);
    RemoveAllIn(scripts_);
    for (const char* suffix : {"", "-wal", "-shm"}) ::unlink((SessionPath() + suffix).c_str());
  }

 private:
  Playground() {
    std::string name = std::filesystem::temp_directory_path() / "tamber-fuzz-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) std::abort();
    root_ = name;
    scripts_ = root_ / "scripts";
    std::filesystem::create_directory(root_ / "host");
    std::filesystem::create_directory(scripts_);
    std::filesystem::copy_file(TAMBER_FUZZ_INI, IniPath());
    policy_.SetAccess(kel::Access::None);
    if (!policy_.AddDirectory(scripts_.string(), kel::Access::Write)) std::abort();
    policy_.SetNetwork(false);
    policy_.SetEnvironment(false);
    policy_.SetDirectoryName(false);
    policy_.SetProcesses(false);
    // A file that grows without end is an error like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit size{rlim_t{64} << 20, rlim_t{64} << 20};
    ::setrlimit(RLIMIT_FSIZE, &size);
  }
  static void RemoveAllIn(const std::filesystem::path& directory) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(directory, ignored))
      std::filesystem::remove_all(entry.path(), ignored);
  }

  const std::filesystem::path outside_ = std::filesystem::current_path();
  std::filesystem::path root_;
  std::filesystem::path scripts_;
  kel::FilePolicy policy_;
};

}  // namespace fuzz
