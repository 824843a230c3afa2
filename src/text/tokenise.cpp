#include "text/tokenise.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>

#include "kel/escape.h"
#include "kel/kelascii.h"
#include "kel/stop.h"

namespace {

constexpr std::array<bool, 256> MakeWordChars() {
  std::array<bool, 256> is{};
  for (unsigned c = 0; c < is.size(); ++c)
    is[c] = kel::IsAlnum(static_cast<char>(c)) || static_cast<char>(c) == '_';
  return is;
}

bool IsWordChar(char c) {
  static constexpr std::array<bool, 256> kIs = MakeWordChars();
  return kIs[static_cast<unsigned char>(c)];
}

// How operators may go on, by their first character.
constexpr unsigned kBegins = 1;
constexpr unsigned kBeforeEqual = 2;
constexpr unsigned kTwice = 4;

constexpr std::array<uint8_t, 256> MakeOperators() {
  std::array<uint8_t, 256> how{};
  const auto set = [&](std::string_view firsts, unsigned bit) {
    for (const char c : firsts) {
      uint8_t& bits = how[static_cast<unsigned char>(c)];
      bits = static_cast<uint8_t>(bits | bit);
    }
  };
  set("=+-*/%<>()&|^!", kBegins);
  set("><+-*/%&|^!=", kBeforeEqual);
  set("&|>", kTwice);
  return how;
}

constexpr std::array<uint8_t, 256> kOperators = MakeOperators();

bool IsBeyondAscii(char c) { return static_cast<unsigned char>(c) >= 0x80; }

bool IsQuote(char c) { return c == '"' || c == '\''; }

template <class Passes>
const char* SkipInSteps(const char* position, const Passes& passes) {
  for (const char* far = position;; far += kel::kBytesPerStep) {
    while (position != far && passes(*position)) ++position;
    if (position != far) return position;
    kel::CheckStop();
  }
}

}  // namespace

const char* Tokeniser::SkipMuchSpace(const char* position) {
  return SkipInSteps(position, [](char c) { return kel::IsSpace(c); });
}

template <class Passes>
const char* Tokeniser::Skip(const char* position, const Passes& passes) const {
  if (isLong_) [[unlikely]] {
    return SkipInSteps(position, passes);
  }
  while (passes(*position)) ++position;
  return position;
}

Tokeniser::Tokeniser(const char* line) { SetLine(line); }

Tokeniser::Tokeniser(const Tokeniser& other) { *this = other; }

Tokeniser& Tokeniser::operator=(const Tokeniser& other) {
  if (this == &other) return *this;
  const char* const start = other.lineBuffer_;
  const bool copied = start && Reserve(static_cast<size_t>(other.lineEnd_ - start));
  lastError_ = !start || copied ? other.lastError_ : kNoMemory;
  handleComments_ = other.handleComments_;
  origin_ = other.origin_;
  tokenLength_ = 0;
  search_ = previous_ = lineEnd_ = nullptr;
  if (!copied) {
    ClearToken();
    return *this;
  }
  // The positions point into the copy's own line, so that the two can go different ways.
  kel::CopyInSteps(lineBuffer_, start, static_cast<size_t>(other.lineEnd_ - start) + 1);
  isLong_ = other.isLong_;
  tokenLength_ = other.tokenLength_;
  std::memcpy(tokenBuffer_, other.token_, tokenLength_);
  tokenBuffer_[tokenLength_] = 0;
  token_ = tokenBuffer_;
  lineEnd_ = lineBuffer_ + (other.lineEnd_ - start);
  if (other.search_) search_ = lineBuffer_ + (other.search_ - start);
  if (other.previous_) previous_ = lineBuffer_ + (other.previous_ - start);
  return *this;
}

Tokeniser::~Tokeniser() {
  std::free(lineBuffer_);
  std::free(tokenBuffer_);
}

bool Tokeniser::Reserve(size_t length) {
  if (length < bufferSize_) return true;
  std::free(lineBuffer_);
  std::free(tokenBuffer_);
  lineBuffer_ = tokenBuffer_ = nullptr;
  bufferSize_ = 0;
  if (length >= std::numeric_limits<unsigned int>::max()) return false;
  lineBuffer_ = static_cast<char*>(std::malloc(length + 1));
  tokenBuffer_ = static_cast<char*>(std::malloc(length + 1));
  if (!lineBuffer_ || !tokenBuffer_) {
    std::free(lineBuffer_);
    std::free(tokenBuffer_);
    lineBuffer_ = tokenBuffer_ = nullptr;
    return false;
  }
  bufferSize_ = static_cast<unsigned int>(length + 1);
  return true;
}

int Tokeniser::SetLine(const char* line) { return SetLine(std::string_view(line ? line : "")); }

int Tokeniser::SetLine(std::string_view line) {
  SetWholeLine(line.substr(0, line.find('\0')));
  return 1;
}

void Tokeniser::SetWholeLine(std::string_view line) {
  if (Reserve(line.size())) {
    // Until it is there, there is none.
    search_ = lineEnd_ = nullptr;
    kel::CopyInSteps(lineBuffer_, line.data(), line.size());
    lineBuffer_[line.size()] = 0;
    lineEnd_ = lineBuffer_ + line.size();
    isLong_ = line.size() > kel::kBytesPerStep;
    lastError_ = 0;
  } else {
    lineEnd_ = nullptr;
    lastError_ = kNoMemory;
  }
  ClearToken();
  ResetLine();
}

void Tokeniser::ResetLine() { search_ = previous_ = lineBuffer_; }

void Tokeniser::ClearToken() {
  tokenLength_ = 0;
  token_ = "";
}

/// Makes the text from the read position to `end` the token.
void Tokeniser::TakeToken(const char* end) {
  token_ = search_;
  tokenLength_ = static_cast<unsigned int>(end - search_);
  search_ = end;
}

/// The token in the buffer, with a closing NUL.
char* Tokeniser::CopyToken() {
  noToken_ = 0;
  if (tokenBuffer_ == nullptr) return &noToken_;
  if (token_ != tokenBuffer_) std::memcpy(tokenBuffer_, token_, tokenLength_);
  tokenBuffer_[tokenLength_] = 0;
  return tokenBuffer_;
}

char* Tokeniser::GetNextToken(int convertEscapes, int reportErrors) {
  ReadToken(convertEscapes != 0, reportErrors != 0);
  return CopyToken();
}

std::string_view Tokeniser::ReadToken(bool convertEscapes, bool reportErrors) {
  ClearToken();
  if (search_ == nullptr) return {};
  previous_ = search_;
  search_ = SkipSpace(search_);
  const char first = *search_;
  if (IsWordChar(first)) {
    ReadWord(reportErrors);
  } else if (first == '\0' || (handleComments_ && IsComment(search_))) {
    return {};
  } else if (first == '"') {
    ReadString(convertEscapes, reportErrors);
  } else if (first == '\'') {
    ReadCharacter(reportErrors);
  } else {
    // A byte of no class is a token by itself too: an empty one would hide the rest of the line.
    TakeToken(search_ + std::max(1u, TokenSize(search_)));
  }
  return Token();
}

void Tokeniser::ReadString(bool convertEscapes, bool reportErrors) {
  const char* end = search_ + 1;
  const auto isPlain = [](char c) { return c != '\0' && c != '"' && c != '\\'; };
  while (*(end = Skip(end, isPlain)) == '\\') {
    if (convertEscapes) return ConvertString(reportErrors);
    end += end[1] == '"' ? 2 : 1;
  }
  CloseQuoted(end, '"', reportErrors);
}

void Tokeniser::ConvertString(bool reportErrors) {
  char* out = tokenBuffer_;
  *out++ = *search_++;
  kel::StopPoll poll(kel::kBytesPerStep);
  while (*search_ && *search_ != '"') {
    poll.Step();
    *out++ = *search_ == '\\' ? ConvertEscape() : *search_++;
  }
  if (*search_ == '"') {
    *out++ = *search_++;
  } else if (reportErrors) {
    lastError_ = kNoQuote;
  }
  token_ = tokenBuffer_;
  tokenLength_ = static_cast<unsigned int>(out - tokenBuffer_);
}

void Tokeniser::ReadCharacter(bool reportErrors) {
  const char* end = Skip(search_ + 1, [](char c) { return c != '\0' && c != '\''; });
  CloseQuoted(end, '\'', reportErrors);
}

void Tokeniser::CloseQuoted(const char* end, char quote, bool reportErrors) {
  const bool closed = *end == quote;
  if (!closed && reportErrors) lastError_ = kNoQuote;
  TakeToken(closed ? end + 1 : end);
}

void Tokeniser::ReadWord(bool reportErrors) {
  if (kel::IsDigit(*search_)) return ReadNumber(reportErrors);
  const char* end = search_;
  while (true) {
    end = Skip(end, [](char c) { return IsWordChar(c); });
    if (!IsQuote(*end)) break;
    if (reportErrors) {
      lastError_ = kBadQuote;
      break;
    }
    ++end;
  }
  TakeToken(end);
}

/// A word that begins with a digit.
void Tokeniser::ReadNumber(bool reportErrors) {
  const char* end = search_;
  bool number = true;  // a "." belongs to a word of digits only
  kel::StopPoll poll(kel::kBytesPerStep);
  while (IsWordChar(*end) || (*end == '.' && number) || IsQuote(*end)) {
    if (IsQuote(*end) && reportErrors) {
      lastError_ = kBadQuote;
      break;
    }
    // "1.5e3" is one number, but what follows the last "." of "12.5.x" is a name.
    if (end != search_ && end[-1] == '.' && !kel::IsDigit(*end) && *end != '.') break;
    number = number && (kel::IsDigit(*end) || *end == '.');
    ++end;
    poll.Step();
  }
  TakeToken(end);
}

char Tokeniser::ConvertEscape() {
  const char first = *search_;
  if (first) ++search_;
  if (first != '\\' || !*search_) return first;
  const kel::Escape escape = kel::DecodeEscape({search_, ::strnlen(search_, 3)});
  search_ += escape.length;
  return escape.byte;
}

char* Tokeniser::GetCurrentToken() {
  if (search_ == nullptr || tokenBuffer_ == nullptr) ClearToken();
  return CopyToken();
}

char* Tokeniser::GetPreviousToken() {
  ClearToken();
  if (search_ != previous_) {
    const char* const target = previous_;
    ResetLine();
    while (search_ < target && !ReadToken().empty()) {
    }
    search_ = target;
  }
  return CopyToken();
}

bool Tokeniser::TakeChar(char expected) {
  if (expected == '\0' || PeekNextChar() != expected) return false;
  search_ = SkipSpace(search_) + 1;
  return true;
}

char Tokeniser::ReadNextChar() {
  if (!search_ || !*search_) return 0;
  return *search_++;
}

void Tokeniser::SetSearch(const char* position) {
  const std::less_equal<const char*> notAfter;
  if (lineEnd_ && notAfter(lineBuffer_, position) && notAfter(position, lineEnd_)) {
    search_ = position;
  }
}

unsigned int Tokeniser::TokenSize(const char* text) {
  const char first = text[0];
  const unsigned how = kOperators[static_cast<unsigned char>(first)];
  if ((how & kBegins) == 0) return 0;
  const char second = text[1];
  if (first == '<' && second == '<') return text[2] == '=' ? 3 : 2;
  if (second == '=' && (how & kBeforeEqual) != 0) return 2;
  if (second == first && (how & kTwice) != 0) return 2;
  if ((first == '/' && second == '*') || (first == '*' && second == '/')) return 2;
  return first == '!' ? 0 : 1;
}

int Tokeniser::IsComment(const char* text) {
  return *text == ';' || *text == '#' || (text[0] == '/' && text[1] == '/');
}

bool Tokeniser::TokenIs(std::string_view word) const { return kel::EqualsNoCase(Token(), word); }

std::string_view Tokeniser::WholeToken() const {
  const auto belongs = [](char c) { return IsWordChar(c) || IsBeyondAscii(c); };
  const char* begin = TokenStart();
  const char* end = search_;
  if (begin == nullptr || begin >= end || !belongs(*begin)) return Token();
  while (begin > lineBuffer_ && belongs(begin[-1])) --begin;
  while (end < lineEnd_ && belongs(*end)) ++end;
  const bool cut = std::any_of(begin, end, IsBeyondAscii);
  return cut ? std::string_view(begin, static_cast<size_t>(end - begin)) : Token();
}

std::string_view Tokeniser::Rest() const {
  if (!search_) return {};
  return {search_, static_cast<size_t>(lineEnd_ - search_)};
}
