#include "kel/regex_posix.h"

// The library's header says "signed" and "unsigned" as it pleases; it is not ours to warn about.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Wconversion"
#include <re2/re2.h>
#pragma GCC diagnostic pop

#include <algorithm>
#include <array>
#include <optional>

#include "kel/kelformat.h"
#include "kel/regex_extent.h"
#include "kel/stop.h"
#include "kel/utf8.h"

namespace kel {
namespace {

/// Bytes for a compiled pattern and its automata. It also bounds what a pattern may expand to.
constexpr int64_t kMemory = int64_t{16} << 20;
/// What it comes to in most cases: an automaton grows with the texts that it is used on.
constexpr size_t kUsualSize = size_t{256} << 10;
/// Beyond this the library complains on standard error, which belongs to the host.
constexpr size_t kLongestPattern = size_t{64} * 1024;
/// The library cannot be interrupted within a search. What one may cost is its automaton's size
/// times the length of the text: some 20 ns for each byte and instruction where an automaton is too
/// large to be cached, a thousandth of that in common ones. So long texts are searched in parts of
/// this many steps, with a look at the time between them,
constexpr uint64_t kStepsOfPart = 1'500'000;
/// and where matches may reach too far for that, in parts of up to so many.
constexpr uint64_t kMostSteps = 200'000'000;
/// Bytes that simulating an automaton may take for the places of groups.
constexpr uint64_t kGroupMemory = uint64_t{64} << 20;

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
  PosixRegex(std::string_view pattern, bool caseSensitive, const RegexExtent& extent)
      : pattern_(pattern),
        caseSensitive_(caseSensitive),
        patternIsUtf8_(IsUtf8(pattern)),
        extent_(extent) {}

  bool Check(RegexFault& fault) {
    const RE2& regex = Get(patternIsUtf8_);
    if (regex.ok()) return true;
    fault.message = regex.error();
    const size_t offset = pattern_.find(regex.error_arg());
    fault.offset = offset == std::string::npos ? 0 : offset;
    return false;
  }

  RegexStatus Find(std::string_view subject, size_t from, bool subjectIsUtf8,
                   const RegexBudget& budget, size_t wanted) override {
    const RE2& regex = Get(CountsCharacters(subjectIsUtf8));
    if (!regex.ok()) return RegexStatus::kNoMatch;
    found_.resize(std::min(wanted, GroupCount()));
    const auto size = static_cast<uint64_t>(regex.ProgramSize());
    if (size * found_.size() * sizeof(re2::StringPiece) > kGroupMemory) return RegexStatus::kLimit;
    // A subject without bytes still has an address, or an empty match could not be told from none.
    const std::string_view text = subject.data() == nullptr ? std::string_view("", 0) : subject;
    while (true) {
      CheckStop();
      if (budget.IsSpent()) return RegexStatus::kLimit;
      const Part part = PartAt(text, from, size);
      if ((part.end - from) * size > kMostSteps) return RegexStatus::kLimit;
      const bool found = regex.Match(Piece(text), from, part.end, RE2::UNANCHORED, found_.data(),
                                     static_cast<int>(found_.size()));
      if (found && (found_.empty() || BeginIn(text) < part.next)) return SetGroups(text);
      if (part.next > text.size()) return RegexStatus::kNoMatch;
      from = part.next;
    }
  }

  size_t GroupCount() const override {
    return static_cast<size_t>(compiled_[patternIsUtf8_]->NumberOfCapturingGroups()) + 1;
  }

  bool CountsCharacters(bool subjectIsUtf8) const override {
    return patternIsUtf8_ && subjectIsUtf8;
  }

  size_t Size() const override {
    constexpr size_t kPerInstruction = 64;
    const auto program = static_cast<size_t>(compiled_[patternIsUtf8_]->ProgramSize());
    return kUsualSize + pattern_.size() + compiled_.size() * program * kPerInstruction;
  }

 private:
  /// Parts are no shorter: every search begins with some work of its own.
  static constexpr size_t kShortestPart = 512;

  /// A part of a text that holds every match which begins in front of `next`.
  struct Part {
    size_t next;
    size_t end;
  };
  Part PartAt(std::string_view text, size_t from, uint64_t programSize) const {
    const size_t length = std::max<size_t>(kStepsOfPart / programSize, kShortestPart);
    // Parts overlap: where they were much shorter than that, each byte would be looked at too
    // often.
    const size_t next = from + std::max<size_t>(length, std::min(extent_.others, kMostSteps) / 4);
    if (next >= text.size()) return {text.size() + 1, text.size()};
    return {next, extent_.EndOfMatches(text, next)};
  }

  size_t BeginIn(std::string_view text) const {
    return static_cast<size_t>(found_.front().data() - text.data());
  }

  RegexStatus SetGroups(std::string_view text) {
    groups_.resize(found_.size());
    for (size_t i = 0; i < found_.size(); ++i) {
      groups_[i] = {};
      if (found_[i].data() == nullptr) continue;
      const size_t begin = static_cast<size_t>(found_[i].data() - text.data());
      groups_[i] = {begin, begin + found_[i].size()};
    }
    return RegexStatus::kMatch;
  }

  const RE2& Get(bool utf8) {
    std::optional<RE2>& regex = compiled_[utf8];
    if (!regex) regex.emplace(Piece(pattern_), OptionsFor(caseSensitive_, utf8));
    return *regex;
  }

  std::string pattern_;
  bool caseSensitive_;
  bool patternIsUtf8_;
  RegexExtent extent_;
  std::array<std::optional<RE2>, 2> compiled_;  ///< as bytes, as UTF-8
  std::vector<re2::StringPiece> found_;
};

}  // namespace

std::unique_ptr<Regex> CompilePosix(std::string_view pattern, bool caseSensitive,
                                    RegexFault& fault) {
  if (pattern.size() > kLongestPattern) {
    fault = {Format("pattern of more than %u bytes", kLongestPattern), 0};
    return nullptr;
  }
  const RegexExtent extent = RegexExtent::Of(pattern, caseSensitive);
  if (extent.groups > RegexExtent::kMostGroups) {
    fault = {Format("more than %u groups", RegexExtent::kMostGroups), 0};
    return nullptr;
  }
  if (extent.depth > RegexExtent::kDeepestGroups) {
    fault = {Format("groups nested deeper than %u", RegexExtent::kDeepestGroups), 0};
    return nullptr;
  }
  auto regex = std::make_unique<PosixRegex>(pattern, caseSensitive, extent);
  if (!regex->Check(fault)) return nullptr;
  return regex;
}

}  // namespace kel
