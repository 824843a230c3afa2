#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tamber.h"

/// What the command line asks for.
struct Options {
  std::string script;               ///< A path, or "-" for standard input.
  std::optional<std::string> text;  ///< The script itself, in place of a file.
  std::vector<std::string> args;
  std::string iniPath;  ///< Empty: the context's default.
  std::optional<uint32_t> session;
  std::vector<std::string> limits;  ///< Lists, as they were given.
  std::string sandbox;              ///< The one directory that scripts may use; empty: no limits.
  bool checkOnly = false;
  std::optional<KelDebugContext::Level> log;  ///< The least severe level that is shown.
  bool dump = false;
  bool dumpCode = false;
  bool verify = false;
  bool trace = false;
  std::string color = "auto";
};

/// Reads the command line. Everything after the script's name belongs to the script, however it
/// looks. Returns no exit status when there is a script to run; otherwise what was asked for, or
/// what was wrong, has been printed.
[[nodiscard]] std::optional<int> ParseOptions(int argc, char* const* argv, Options* options);
