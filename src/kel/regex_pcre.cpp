#include "kel/regex_pcre.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <new>
#include <optional>

#include "kel/kelascii.h"
#include "kel/kelformat.h"
#include "kel/lazylibrary.h"
#include "kel/stop.h"
#include "kel/utf8.h"

namespace kel {
namespace {

LazyLibrary pcre2(KEL_SONAME_LIBPCRE2_8);
KEL_LAZY(pcre2, pcre2_code_free);
KEL_LAZY(pcre2, pcre2_compile);
KEL_LAZY(pcre2, pcre2_compile_context_create);
KEL_LAZY(pcre2, pcre2_compile_context_free);
KEL_LAZY(pcre2, pcre2_get_error_message);
KEL_LAZY(pcre2, pcre2_get_ovector_count);
KEL_LAZY(pcre2, pcre2_get_ovector_pointer);
KEL_LAZY(pcre2, pcre2_jit_compile);
KEL_LAZY(pcre2, pcre2_jit_stack_assign);
KEL_LAZY(pcre2, pcre2_jit_stack_create);
KEL_LAZY(pcre2, pcre2_jit_stack_free);
KEL_LAZY(pcre2, pcre2_match);
KEL_LAZY(pcre2, pcre2_match_context_create);
KEL_LAZY(pcre2, pcre2_match_context_free);
KEL_LAZY(pcre2, pcre2_match_data_create_from_pattern);
KEL_LAZY(pcre2, pcre2_match_data_free);
KEL_LAZY(pcre2, pcre2_pattern_info);
KEL_LAZY(pcre2, pcre2_set_callout);
KEL_LAZY(pcre2, pcre2_set_depth_limit);
KEL_LAZY(pcre2, pcre2_set_heap_limit);
KEL_LAZY(pcre2, pcre2_set_match_limit);
KEL_LAZY(pcre2, pcre2_set_newline);

constexpr uint32_t kMatchLimit = 10'000'000;
constexpr uint32_t kDepthLimit = 250'000;
constexpr uint32_t kHeapLimitKiB = 64 * 1024;
constexpr size_t kJitStackStart = size_t{32} * 1024;
constexpr size_t kJitStackLimit = size_t{8} * 1024 * 1024;
/// What a match may use that needs more; given back with the match.
constexpr size_t kLargeJitStack = size_t{256} * 1024 * 1024;
/// Steps between two looks at the clock in a guarded match.
constexpr uint32_t kStepsPerLook = 512;

template <const auto& Free>
struct Freer {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};
using CodePtr = std::unique_ptr<pcre2_code, Freer<pcre2_code_free>>;
using MatchDataPtr = std::unique_ptr<pcre2_match_data, Freer<pcre2_match_data_free>>;
using MatchContextPtr = std::unique_ptr<pcre2_match_context, Freer<pcre2_match_context_free>>;
using CompileContextPtr = std::unique_ptr<pcre2_compile_context, Freer<pcre2_compile_context_free>>;
using JitStackPtr = std::unique_ptr<pcre2_jit_stack, Freer<pcre2_jit_stack_free>>;

PCRE2_SPTR Units(std::string_view text) {
  static const unsigned char empty = 0;
  return text.empty() ? &empty : reinterpret_cast<PCRE2_SPTR>(text.data());
}

template <class T>
T* OrThrow(T* object) {
  if (object == nullptr) throw std::bad_alloc();
  return object;
}

std::string MessageOf(int code) {
  std::array<PCRE2_UCHAR, 256> text{};
  pcre2_get_error_message(code, text.data(), text.size());
  return reinterpret_cast<const char*>(text.data());
}

/// What guards a match step by step: it is asked before every item of the pattern.
struct Guard {
  const RegexBudget* budget;
  uint64_t stepsLeft;
};

int OnStep(pcre2_callout_block*, void* data) {
  Guard& guard = *static_cast<Guard*>(data);
  if (--guard.stepsLeft == 0) return PCRE2_ERROR_MATCHLIMIT;
  if (guard.stepsLeft % kStepsPerLook != 0) return 0;
  return IsStopRequested() || guard.budget->IsSpent() ? PCRE2_ERROR_MATCHLIMIT : 0;
}

/// The limits of matching, and the stack that compiled code runs on; one for each thread.
class Matching {
 public:
  Matching() : context_(OrThrow(pcre2_match_context_create(nullptr))) {
    pcre2_set_match_limit(context_.get(), kMatchLimit);
    pcre2_set_depth_limit(context_.get(), kDepthLimit);
    pcre2_set_heap_limit(context_.get(), kHeapLimitKiB);
    stack_.reset(pcre2_jit_stack_create(kJitStackStart, kJitStackLimit, nullptr));
    pcre2_jit_stack_assign(context_.get(), nullptr, stack_.get());
  }
  pcre2_match_context* Plain() {
    pcre2_set_callout(context_.get(), nullptr, nullptr);
    return context_.get();
  }
  pcre2_match_context* Guarded(Guard& guard) {
    pcre2_set_callout(context_.get(), OnStep, &guard);
    return context_.get();
  }
  /// Compiled code runs on a stack of its own choice of size.
  void UseStack(pcre2_jit_stack* stack) {
    pcre2_jit_stack_assign(context_.get(), nullptr, stack != nullptr ? stack : stack_.get());
  }
  static Matching& OfThread() {
    thread_local Matching matching;
    return matching;
  }

 private:
  JitStackPtr stack_;
  MatchContextPtr context_;
};

/// What a pattern may do to the time that a match takes. Reads it roughly: what is taken for a loop
/// and is none (in a class, say) costs speed, not safety.
struct PatternShape {
  size_t loops = 0;
  bool nested = false;  ///< repeated groups, references, look-around, calls: loops around loops

  explicit PatternShape(std::string_view pattern) {
    for (size_t i = 0; i < pattern.size(); ++i) {
      const char c = pattern[i];
      const char next = i + 1 < pattern.size() ? pattern[i + 1] : '\0';
      if (c == '\\') {
        // \G is here as well: it would take each piece of a subject for the start of the search.
        if (IsDigit(next) || next == 'g' || next == 'k' || next == 'G') nested = true;
        ++i;
      } else if (c == '*' || c == '+' || c == '{') {
        ++loops;
        if (i > 0 && pattern[i - 1] == ')') nested = true;
      } else if (c == '(' && (next == '?' || next == '*')) {
        const std::string_view kind = pattern.substr(i, 3);
        if (kind != "(?:" && kind != "(?i" && kind != "(?<") nested = true;
      }
    }
  }
};

/// How much of a subject one unguarded attempt may look at.
///
/// Compiled code counts the rounds of groups but not those of single items: `x?a*a*a*[bc]` takes
/// cubic time within its limits and cannot be interrupted. Each loop adds a factor of the length,
/// so the length is bounded by the number of loops such that the worst case stays near a twentieth
/// of a second, after which somebody may want to stop; the few matches that reach further are made
/// with the guard that looks in at every item.
size_t PlainReach(const PatternShape& shape) {
  constexpr std::array<size_t, 6> kSimple = {size_t{1} << 24, 16384, 768, 256, 112, 80};
  constexpr std::array<size_t, 3> kNested = {16384, 384, 128};
  if (shape.nested) return shape.loops < kNested.size() ? kNested[shape.loops] : 0;
  return shape.loops < kSimple.size() ? kSimple[shape.loops] : 0;
}

/// One compilation of a pattern: as UTF-8 or as bytes, plain or guarded.
class Code {
 public:
  static std::optional<Code> Compile(std::string_view pattern, uint32_t flags, RegexFault& fault) {
    const CompileContextPtr context(OrThrow(pcre2_compile_context_create(nullptr)));
    pcre2_set_newline(context.get(), PCRE2_NEWLINE_ANYCRLF);
    int error = 0;
    PCRE2_SIZE offset = 0;
    CodePtr code(
        pcre2_compile(Units(pattern), pattern.size(), flags, &error, &offset, context.get()));
    if (!code) {
      if (error == PCRE2_ERROR_HEAP_FAILED) throw std::bad_alloc();
      fault = {MessageOf(error), offset};
      return std::nullopt;
    }
    // Where there is no compiler for this machine the pattern is interpreted, under the same
    // limits.
    pcre2_jit_compile(code.get(), PCRE2_JIT_COMPLETE | PCRE2_JIT_PARTIAL_HARD);
    MatchDataPtr data(OrThrow(pcre2_match_data_create_from_pattern(code.get(), nullptr)));
    return Code(std::move(code), std::move(data));
  }
  /// As pcre2_match: 0 or more for a match.
  int Match(std::string_view subject, size_t from, uint32_t flags, pcre2_match_context* context) {
    return pcre2_match(code_.get(), Units(subject), subject.size(), from,
                       flags | PCRE2_NO_UTF_CHECK, data_.get(), context);
  }
  size_t GroupCount() const { return pcre2_get_ovector_count(data_.get()); }
  size_t Size() const {
    size_t size = 0;
    size_t compiled = 0;
    pcre2_pattern_info(code_.get(), PCRE2_INFO_SIZE, &size);
    pcre2_pattern_info(code_.get(), PCRE2_INFO_JITSIZE, &compiled);
    return size + compiled;
  }
  size_t MatchStart() const { return pcre2_get_ovector_pointer(data_.get())[0]; }
  void GetGroups(std::vector<RegexSpan>& groups) const {
    const PCRE2_SIZE* offsets = pcre2_get_ovector_pointer(data_.get());
    groups.resize(pcre2_get_ovector_count(data_.get()));
    for (size_t i = 0; i < groups.size(); ++i) {
      groups[i] = {};
      if (offsets[2 * i] != PCRE2_UNSET) groups[i] = {offsets[2 * i], offsets[2 * i + 1]};
    }
    // \K inside a look-ahead may set the start behind the end.
    groups[0].begin = std::min(groups[0].begin, groups[0].end);
  }

 private:
  Code(CodePtr code, MatchDataPtr data) : code_(std::move(code)), data_(std::move(data)) {}
  CodePtr code_;
  MatchDataPtr data_;
};

class PcreRegex final : public Regex {
 public:
  static std::unique_ptr<PcreRegex> Compile(std::string_view pattern, const PcreOptions& options,
                                            RegexFault& fault) {
    std::unique_ptr<PcreRegex> regex(new PcreRegex(pattern, options));
    regex->plain_[regex->patternIsUtf8_] =
        Code::Compile(regex->pattern_, regex->Flags(regex->patternIsUtf8_), fault);
    return regex->plain_[regex->patternIsUtf8_] ? std::move(regex) : nullptr;
  }

  RegexStatus Find(std::string_view subject, size_t from, bool subjectIsUtf8,
                   const RegexBudget& budget, size_t /*wanted*/) override {
    CheckStop();
    const bool utf8 = CountsCharacters(subjectIsUtf8);
    Code* code = Get(plain_, utf8, 0);
    if (code == nullptr) return RegexStatus::kNoMatch;
    // A search in pieces would begin anew at each of them.
    if (options_.whole && subject.size() - from > reach_) {
      return FindGuarded(subject, from, utf8, budget);
    }
    while (subject.size() - from > reach_) {
      size_t end = from + reach_;
      if (utf8) end = CharacterStart(subject, end);
      if (end <= from) return FindGuarded(subject, from, utf8, budget);
      const int result = code->Match(subject.substr(0, end), from, PCRE2_PARTIAL_HARD,
                                     Matching::OfThread().Plain());
      if (result == PCRE2_ERROR_PARTIAL) {
        // Looking on needs more of the subject; the next piece begins where this attempt did.
        if (code->MatchStart() <= from) return FindGuarded(subject, from, utf8, budget);
        from = code->MatchStart();
      } else if (result == PCRE2_ERROR_NOMATCH) {
        from = end;
      } else {
        return Settle(*code, result);
      }
      CheckStop();
      if (budget.IsSpent()) return RegexStatus::kLimit;
    }
    return Settle(*code, code->Match(subject, from, 0, Matching::OfThread().Plain()));
  }

  size_t GroupCount() const override { return plain_[patternIsUtf8_]->GroupCount(); }

  bool CountsCharacters(bool subjectIsUtf8) const override {
    return patternIsUtf8_ && subjectIsUtf8;
  }

  /// With the compilations that subjects of another kind ask for.
  size_t Size() const override {
    return pattern_.size() + 2 * (plain_.size() * plain_[patternIsUtf8_]->Size());
  }

 private:
  using CodePair = std::array<std::optional<Code>, 2>;  ///< as bytes, as UTF-8

  PcreRegex(std::string_view pattern, const PcreOptions& options)
      : pattern_(pattern),
        options_(options),
        patternIsUtf8_(IsUtf8(pattern)),
        reach_(PlainReach(PatternShape(pattern))) {}

  uint32_t Flags(bool utf8) const {
    // Half characters are never matched, and bytes are never taken for UTF-8 on a pattern's word.
    uint32_t flags = PCRE2_NEVER_BACKSLASH_C;
    flags |= utf8 ? PCRE2_UTF : PCRE2_NEVER_UTF;
    if (!options_.caseSensitive) flags |= PCRE2_CASELESS;
    if (options_.multiline) flags |= PCRE2_MULTILINE;
    if (options_.whole) flags |= PCRE2_ANCHORED | PCRE2_ENDANCHORED;
    return flags;
  }

  /// Compiles on first use. A pattern that only makes sense for UTF-8 matches nothing in bytes.
  Code* Get(CodePair& codes, bool utf8, uint32_t flags) {
    if (!codes[utf8]) {
      RegexFault fault;
      codes[utf8] = Code::Compile(pattern_, Flags(utf8) | flags, fault);
    }
    return codes[utf8] ? &*codes[utf8] : nullptr;
  }

  static size_t CharacterStart(std::string_view subject, size_t at) {
    while (at > 0 && (static_cast<unsigned char>(subject[at]) & 0xC0) == 0x80) --at;
    return at;
  }

  RegexStatus FindGuarded(std::string_view subject, size_t from, bool utf8,
                          const RegexBudget& budget) {
    Code* code = Get(guarded_, utf8, PCRE2_AUTO_CALLOUT);
    if (code == nullptr) return RegexStatus::kLimit;
    Guard guard{&budget, kMatchLimit + uint64_t{16} * (subject.size() - from)};
    Matching& matching = Matching::OfThread();
    int result = code->Match(subject, from, 0, matching.Guarded(guard));
    if (result == PCRE2_ERROR_JIT_STACKLIMIT) {
      const JitStackPtr large(pcre2_jit_stack_create(kJitStackStart, kLargeJitStack, nullptr));
      matching.UseStack(large.get());
      result = code->Match(subject, from, 0, matching.Guarded(guard));
      matching.UseStack(nullptr);
    }
    CheckStop();
    return Settle(*code, result);
  }

  RegexStatus Settle(const Code& code, int result) {
    if (result >= 0) {
      code.GetGroups(groups_);
      return RegexStatus::kMatch;
    }
    if (result == PCRE2_ERROR_NOMEMORY) throw std::bad_alloc();
    return result == PCRE2_ERROR_NOMATCH ? RegexStatus::kNoMatch : RegexStatus::kLimit;
  }

  std::string pattern_;
  PcreOptions options_;
  bool patternIsUtf8_;
  size_t reach_;
  CodePair plain_;
  CodePair guarded_;
};

}  // namespace

std::unique_ptr<Regex> CompilePcre(std::string_view pattern, const PcreOptions& options,
                                   RegexFault& fault) {
  if (pattern.size() > kLongestPcre) {
    fault = {Format("pattern of more than %u bytes", kLongestPcre), 0};
    return nullptr;
  }
  return PcreRegex::Compile(pattern, options, fault);
}

}  // namespace kel
