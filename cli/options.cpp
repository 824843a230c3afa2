#include "options.h"

#include <CLI/CLI.hpp>
#include <limits>
#include <memory>

namespace {

constexpr int kBadCommandLine = 2;

/// The library's help, with SCRIPT and its ARGs in the first line although they are not declared to
/// it.
class Help final : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override {
    return "Usage: tamber [OPTION...] SCRIPT [ARG...]\n"
           "       tamber [OPTION...] -e TEXT [ARG...]\n";
  }
};

}  // namespace

std::optional<int> ParseOptions(int argc, const char* const* argv, Options* options) {
  CLI::App app{"Runs a Tamber script."};
  app.name("tamber");
  app.formatter(std::make_shared<Help>());
  app.footer(
      "SCRIPT is a file, or - for standard input. The ARGs reach a script that declares\n"
      "\"extern string[] Args\". The exit status is 0 when the script ran well, 1 when it did not\n"
      "compile or ended with an error, and 2 when the command line was wrong.");
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.set_version_flag("--version", "tamber " TAMBER_VERSION, "Print the version and exit");
  app.add_option("--ini", options->iniPath, "Configuration (default: ./tamber.ini)")
      ->check(CLI::ExistingFile)
      ->option_text("FILE");
  app.add_option("--session", options->session, "Load and save the variables of this session")
      ->check(CLI::Range(uint32_t{1}, std::numeric_limits<uint32_t>::max()))
      ->option_text("ID");
  app.add_option("--sandbox", options->sandbox,
                 "Let scripts use files below this directory only, and no network")
      ->check(CLI::ExistingDirectory)
      ->option_text("DIR");
  app.add_option("-e", options->text, "Run TEXT as a script")->option_text("TEXT");
  app.add_flag("--dump", options->dump, "Show the compiled statements on standard error");
  app.add_flag("--trace", options->trace, "Show procedures as they run on standard error");
  app.add_option("--color", options->color, "Colours in errors: auto, always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->option_text("WHEN");
  app.add_flag("--check", options->checkOnly, "Compile only, run nothing");
  // The first word that is no option ends them, and is left untouched with all that follow it. As a
  // declared positional each ARG would be interpreted: "[a,b]" would arrive as two.
  app.prefix_command();

  try {
    app.parse(argc, argv);
    std::vector<std::string> words = app.remaining();
    const bool optionsEnded = !words.empty() && words.front() == "--";
    if (optionsEnded) {
      words.erase(words.begin());
    }
    if (options->text) {
      options->args = words;
      return std::nullopt;
    }
    if (words.empty()) {
      throw CLI::RequiredError("SCRIPT");
    }
    if (!optionsEnded && words.front().size() > 1 && words.front().front() == '-') {
      throw CLI::ExtrasError({words.front()});
    }
    options->script = words.front();
    options->args.assign(words.begin() + 1, words.end());
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kBadCommandLine;
  }
}
