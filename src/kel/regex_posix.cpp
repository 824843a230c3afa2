#include "kel/regex_posix.h"

// The library's header says "signed" and "unsigned" as it pleases; it is not ours to warn about.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Wconversion"
#include <re2/re2.h>
#pragma GCC diagnostic pop

#include <array>
#include <optional>

#include "kel/utf8.h"

namespace kel {
namespace {

/// Bytes for a compiled pattern and its automata. It also bounds what a pattern may expand to.
constexpr int64_t kMemory = int64_t{16} << 20;
/// Beyond this the library complains on standard error, which belongs to the host.
constexpr size_t kLongestPattern = size_t{64} * 1024;
/// Steps that simulating an automaton may take when it is too large to be cached: size times
/// length.
constexpr double kWorkLimit = 1e11;

RE2::Options OptionsFor(bool caseSensitive, bool utf8) {
  RE2::Options options;
  options.set_posix_syntax(true);
  options.set_longest_match(true);
  options.set_perl_classes(true);
  options.set_word_boundary(true);
  options.set_one_line(true);
  options.set_log_errors(false);
  options.set_max_mem(kMemory);
  options.set_case_sensitive(caseSensitive);
  options.set_encoding(utf8 ? RE2::Options::EncodingUTF8 : RE2::Options::EncodingLatin1);
  return options;
}

re2::StringPiece Piece(std::string_view text) { return {text.data(), text.size()}; }

class PosixRegex final : public Regex {
 public:
  PosixRegex(std::string_view pattern, bool caseSensitive)
      : pattern_(pattern), caseSensitive_(caseSensitive), patternIsUtf8_(IsUtf8(pattern)) {}

  bool Check(RegexFault& fault) {
    const RE2& regex = Get(patternIsUtf8_);
    if (regex.ok()) return true;
    fault.message = regex.error();
    const size_t offset = pattern_.find(regex.error_arg());
    fault.offset = offset == std::string::npos ? 0 : offset;
    return false;
  }

  RegexStatus Find(std::string_view subject, size_t from, bool subjectIsUtf8,
                   const RegexBudget& budget) override {
    const RE2& regex = Get(CountsCharacters(subjectIsUtf8));
    if (!regex.ok()) return RegexStatus::kNoMatch;
    const double work =
        static_cast<double>(regex.ProgramSize()) * static_cast<double>(subject.size() - from);
    if (work > kWorkLimit || budget.IsSpent()) return RegexStatus::kLimit;
    found_.resize(static_cast<size_t>(regex.NumberOfCapturingGroups()) + 1);
    // A subject without bytes still has an address, or an empty match could not be told from none.
    const std::string_view text = subject.data() == nullptr ? std::string_view("", 0) : subject;
    if (!regex.Match(Piece(text), from, text.size(), RE2::UNANCHORED, found_.data(),
                     static_cast<int>(found_.size()))) {
      return RegexStatus::kNoMatch;
    }
    groups_.resize(found_.size());
    for (size_t i = 0; i < found_.size(); ++i) {
      groups_[i] = {};
      if (found_[i].data() == nullptr) continue;
      const size_t begin = static_cast<size_t>(found_[i].data() - text.data());
      groups_[i] = {begin, begin + found_[i].size()};
    }
    return RegexStatus::kMatch;
  }

  bool CountsCharacters(bool subjectIsUtf8) const override {
    return patternIsUtf8_ && subjectIsUtf8;
  }

 private:
  const RE2& Get(bool utf8) {
    std::optional<RE2>& regex = compiled_[utf8];
    if (!regex) regex.emplace(Piece(pattern_), OptionsFor(caseSensitive_, utf8));
    return *regex;
  }

  std::string pattern_;
  bool caseSensitive_;
  bool patternIsUtf8_;
  std::array<std::optional<RE2>, 2> compiled_;  ///< as bytes, as UTF-8
  std::vector<re2::StringPiece> found_;
};

}  // namespace

std::unique_ptr<Regex> CompilePosix(std::string_view pattern, bool caseSensitive,
                                    RegexFault& fault) {
  if (pattern.size() > kLongestPattern) {
    fault = {"pattern is too long", kLongestPattern};
    return nullptr;
  }
  auto regex = std::make_unique<PosixRegex>(pattern, caseSensitive);
  if (!regex->Check(fault)) return nullptr;
  return regex;
}

}  // namespace kel
