// String built-ins over 10 MB of text, each beside a direct call of the library that does its work.
#include <benchmark/benchmark.h>

#define PCRE2_CODE_UNIT_WIDTH 8
#include <nettle/base64.h>
#include <pcre2.h>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Wconversion"
#include <re2/re2.h>
#pragma GCC diagnostic pop

#include <memory>
#include <string>
#include <vector>

#include "context/tambctxt.h"
#include "values/varstring.h"

namespace {

constexpr size_t kSize = 10'000'000;

/// Log lines with words, numbers, addresses and some marks that need escaping.
const std::string& Corpus() {
  static const std::string corpus = [] {
    const char* const words[] = {"the ",     "quick ",       "request42 ",
                                 "took ",    "17ms, ",       "mail@example.com ",
                                 "<done>\n", "caf\xC3\xA9 ", "status=200 "};
    std::string text;
    uint32_t state = 1;
    while (text.size() < kSize) {
      state = state * 1103515245 + 12345;
      text += words[(state >> 16) % std::size(words)];
    }
    return text;
  }();
  return corpus;
}

/// A registered function, called as running code calls it with texts that are variables.
class BuiltIn {
 public:
  BuiltIn(const char* name, uint32_t parameters) {
    const uint32_t found = context_.FindFunction(name);
    for (uint32_t i = found > 8 ? found - 8 : 1; i < found + 8; ++i) {
      const TamberFunction* function = context_.GetFunction(i);
      if (function != nullptr && function->GetName() == KelString(name) &&
          function->GetParameterCount() == parameters) {
        implementation_ = function->GetImplementation();
      }
    }
  }
  ~BuiltIn() {
    for (Variable* text : texts_) Variable::Delete(text);
  }
  BuiltIn(const BuiltIn&) = delete;
  BuiltIn& operator=(const BuiltIn&) = delete;

  void AddText(const std::string& text) {
    texts_.push_back(new VarString(KelString(), 0));
    texts_.back()->SetStringValue(KelString(text));
  }
  void Call(benchmark::State& state, bool withCase) {
    for (Variable* text : texts_) stack_.PushVariable(text->Duplicate());
    if (withCase) stack_.PushBoolean(1);
    FunctionCallInfo info{&context_, &stack_, 0, KelString()};
    if (implementation_ == nullptr || implementation_(&info) != 1 || info.errorCode != 0) {
      state.SkipWithError("the call failed");
    }
    stack_.PopAll();
  }

 private:
  TamberContext context_;
  Stack stack_;
  std::vector<Variable*> texts_;
  TamberFunctionPtr implementation_ = nullptr;
};

void Finish(benchmark::State& state) {
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Corpus().size()));
}

void RunBuiltIn(benchmark::State& state, const char* name, std::vector<std::string> texts,
                bool withCase) {
  BuiltIn function(name, static_cast<uint32_t>(texts.size()) + (withCase ? 2 : 1));
  function.AddText(Corpus());
  for (const std::string& text : texts) function.AddText(text);
  for (auto _ : state) function.Call(state, withCase);
  Finish(state);
}

class Pcre {
 public:
  explicit Pcre(const char* pattern) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern), PCRE2_ZERO_TERMINATED, PCRE2_UTF,
                          &error, &offset, nullptr);
    pcre2_jit_compile(code_, PCRE2_JIT_COMPLETE);
    data_ = pcre2_match_data_create_from_pattern(code_, nullptr);
  }
  ~Pcre() {
    pcre2_match_data_free(data_);
    pcre2_code_free(code_);
  }
  Pcre(const Pcre&) = delete;
  Pcre& operator=(const Pcre&) = delete;
  pcre2_code* Code() const { return code_; }
  pcre2_match_data* Data() const { return data_; }

 private:
  pcre2_code* code_ = nullptr;
  pcre2_match_data* data_ = nullptr;
};

PCRE2_SPTR Units(const std::string& text) { return reinterpret_cast<PCRE2_SPTR>(text.data()); }

void PcreReplaceDirect(benchmark::State& state, const char* pattern,
                       const std::string& replacement) {
  const Pcre pcre(pattern);
  const std::string& text = Corpus();
  for (auto _ : state) {
    std::string out(text.size() * 2, '\0');
    PCRE2_SIZE length = out.size();
    const int count =
        pcre2_substitute(pcre.Code(), Units(text), text.size(), 0, PCRE2_SUBSTITUTE_GLOBAL,
                         pcre.Data(), nullptr, Units(replacement), replacement.size(),
                         reinterpret_cast<PCRE2_UCHAR*>(out.data()), &length);
    if (count <= 0) state.SkipWithError("nothing was replaced");
    out.resize(length);
    benchmark::DoNotOptimize(out);
  }
  Finish(state);
}

void PcreMatchDirect(benchmark::State& state, const char* pattern) {
  const Pcre pcre(pattern);
  const std::string& text = Corpus();
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        pcre2_match(pcre.Code(), Units(text), text.size(), 0, 0, pcre.Data(), nullptr));
  }
  Finish(state);
}

RE2::Options PosixOptions() {
  RE2::Options options(RE2::POSIX);
  options.set_perl_classes(true);
  options.set_one_line(true);
  return options;
}

void PosixReplaceDirect(benchmark::State& state, const char* pattern, const char* replacement) {
  const RE2 regex(pattern, PosixOptions());
  for (auto _ : state) {
    std::string text = Corpus();
    RE2::GlobalReplace(&text, regex, replacement);
    benchmark::DoNotOptimize(text);
  }
  Finish(state);
}

void PosixFindDirect(benchmark::State& state, const char* pattern) {
  const RE2 regex(std::string("(") + pattern + ")", PosixOptions());
  for (auto _ : state) {
    re2::StringPiece rest(Corpus());
    std::vector<std::string> found;
    std::string text;
    while (RE2::FindAndConsume(&rest, regex, &text)) found.push_back(text);
    benchmark::DoNotOptimize(found);
  }
  Finish(state);
}

void Base64Direct(benchmark::State& state) {
  const std::string& text = Corpus();
  for (auto _ : state) {
    std::string out(BASE64_ENCODE_RAW_LENGTH(text.size()), '\0');
    base64_encode_raw(out.data(), text.size(), reinterpret_cast<const uint8_t*>(text.data()));
    benchmark::DoNotOptimize(out);
  }
  Finish(state);
}

/// No library escapes as the language does; this is the loop that a host would write.
void EscapeUrlDirect(benchmark::State& state) {
  const std::string& text = Corpus();
  for (auto _ : state) {
    std::string out;
    out.reserve(text.size() * 2);
    for (const char c : text) {
      const bool kept =
          (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '%';
      if (kept) {
        out += c;
        continue;
      }
      const auto byte = static_cast<unsigned char>(c);
      out += '%';
      out += "0123456789abcdef"[byte >> 4];
      out += "0123456789abcdef"[byte & 15];
    }
    benchmark::DoNotOptimize(out);
  }
  Finish(state);
}

void CopyText(benchmark::State& state) {
  for (auto _ : state) {
    std::string copy = Corpus();
    benchmark::DoNotOptimize(copy);
  }
  Finish(state);
}

const char kMail[] = "(\\w+)@(\\w+)\\.com";
const char kNumber[] = "[0-9]+";
const char kAbsent[] = "[a-z]+ing\\b";

BENCHMARK_CAPTURE(RunBuiltIn, ReplacePcreNumber, "StrReplacePcre", {kNumber, "#"}, true);
BENCHMARK_CAPTURE(PcreReplaceDirect, Number, kNumber, "#");
BENCHMARK_CAPTURE(RunBuiltIn, ReplacePcreMail, "StrReplacePcre", {kMail, "$2 at $1"}, true);
BENCHMARK_CAPTURE(PcreReplaceDirect, Mail, kMail, "$2 at $1");
BENCHMARK_CAPTURE(RunBuiltIn, MatchPcreAbsent, "StrMatchPcre", {kAbsent}, true);
BENCHMARK_CAPTURE(PcreMatchDirect, Absent, kAbsent);
BENCHMARK_CAPTURE(RunBuiltIn, ReplaceRegExNumber, "StrReplaceRegEx", {kNumber, "#"}, true);
BENCHMARK_CAPTURE(PosixReplaceDirect, Number, kNumber, "#");
BENCHMARK_CAPTURE(RunBuiltIn, FindRegExNumber, "StrFindRegEx", {kNumber}, true);
BENCHMARK_CAPTURE(PosixFindDirect, Number, kNumber);
BENCHMARK_CAPTURE(RunBuiltIn, EscapeHtml, "StrEscapeHtml", {}, false);
BENCHMARK_CAPTURE(RunBuiltIn, EscapeUrl, "StrEscapeHtmlUrl", {}, false);
BENCHMARK(EscapeUrlDirect);
BENCHMARK_CAPTURE(RunBuiltIn, EncodeBase64, "StrEncodeBase64", {}, false);
BENCHMARK(Base64Direct);
BENCHMARK_CAPTURE(RunBuiltIn, ToUpper, "StrToUpper", {}, false);
BENCHMARK(CopyText);

}  // namespace
