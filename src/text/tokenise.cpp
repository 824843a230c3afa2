#include "text/tokenise.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>

#include "kel/escape.h"
#include "kel/kelascii.h"

namespace {

bool IsWordChar(char c) { return kel::IsAlnum(c) || c == '_'; }

bool IsBeyondAscii(char c) { return static_cast<unsigned char>(c) >= 0x80; }

bool IsQuote(char c) { return c == '"' || c == '\''; }

}  // namespace

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
  std::memcpy(lineBuffer_, start, static_cast<size_t>(other.lineEnd_ - start) + 1);
  std::memcpy(tokenBuffer_, other.tokenBuffer_, other.tokenLength_ + size_t{1});
  tokenLength_ = other.tokenLength_;
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
  line = line.substr(0, line.find('\0'));
  if (Reserve(line.size())) {
    std::copy(line.begin(), line.end(), lineBuffer_);
    lineBuffer_[line.size()] = 0;
    lineEnd_ = lineBuffer_ + line.size();
    lastError_ = 0;
  } else {
    lineEnd_ = nullptr;
    lastError_ = kNoMemory;
  }
  ClearToken();
  ResetLine();
  return 1;
}

void Tokeniser::ResetLine() { search_ = previous_ = lineBuffer_; }

const char* Tokeniser::SkipSpace(const char* position) const {
  while (position != nullptr && position < lineEnd_ && kel::IsSpace(*position)) ++position;
  return position;
}

const char* Tokeniser::TokenStart() const { return SkipSpace(previous_); }

uint32_t Tokeniser::OffsetOf(const char* position) const {
  return position == nullptr ? origin_ : origin_ + static_cast<uint32_t>(position - lineBuffer_);
}

char* Tokeniser::ClearToken() {
  tokenLength_ = 0;
  noToken_ = 0;
  char* const token = tokenBuffer_ ? tokenBuffer_ : &noToken_;
  *token = 0;
  return token;
}

char* Tokeniser::EndToken(const char* end) {
  tokenLength_ = static_cast<unsigned int>(end - tokenBuffer_);
  tokenBuffer_[tokenLength_] = 0;
  return tokenBuffer_;
}

/// Makes the text from the read position to `end` the token.
char* Tokeniser::CopyToken(const char* end) {
  char* const out = std::copy(search_, end, tokenBuffer_);
  search_ = end;
  return EndToken(out);
}

char* Tokeniser::GetNextToken(int convertEscapes, int reportErrors) {
  char* const empty = ClearToken();
  if (!search_) return empty;
  previous_ = search_;
  while (kel::IsSpace(*search_)) ++search_;
  if (!*search_ || (handleComments_ && IsComment(search_))) return empty;
  const char first = *search_;
  if (IsWordChar(first)) return ReadWord(reportErrors != 0);
  if (first == '"') return ReadString(convertEscapes != 0, reportErrors != 0);
  if (first == '\'') return ReadCharacter(reportErrors != 0);
  // A byte of no class is a token by itself too: an empty one would hide the rest of the line.
  return CopyToken(search_ + std::max(1u, TokenSize(search_)));
}

char* Tokeniser::ReadString(bool convertEscapes, bool reportErrors) {
  char* out = tokenBuffer_;
  *out++ = *search_++;
  while (*search_ && *search_ != '"') {
    if (*search_ == '\\' && convertEscapes) {
      *out++ = ConvertEscape();
      continue;
    }
    if (*search_ == '\\' && search_[1] == '"') *out++ = *search_++;
    *out++ = *search_++;
  }
  return CloseQuoted(out, '"', reportErrors);
}

char* Tokeniser::ReadCharacter(bool reportErrors) {
  char* out = tokenBuffer_;
  *out++ = *search_++;
  while (*search_ && *search_ != '\'') *out++ = *search_++;
  return CloseQuoted(out, '\'', reportErrors);
}

char* Tokeniser::CloseQuoted(char* out, char quote, bool reportErrors) {
  if (*search_ == quote) {
    *out++ = quote;
    ++search_;
  } else if (reportErrors) {
    lastError_ = kNoQuote;
  }
  return EndToken(out);
}

char* Tokeniser::ReadWord(bool reportErrors) {
  const char* end = search_;
  bool number = true;  // a "." belongs to a word of digits only
  while (IsWordChar(*end) || (*end == '.' && number) || IsQuote(*end)) {
    if (IsQuote(*end) && reportErrors) {
      lastError_ = kBadQuote;
      break;
    }
    // "1.5e3" is one number, but what follows the last "." of "12.5.x" is a name.
    if (end != search_ && end[-1] == '.' && !kel::IsDigit(*end) && *end != '.') break;
    number = number && (kel::IsDigit(*end) || *end == '.');
    ++end;
  }
  return CopyToken(end);
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
  if (!search_ || !tokenBuffer_) return ClearToken();
  return tokenBuffer_;
}

char* Tokeniser::GetPreviousToken() {
  char* token = ClearToken();
  if (search_ == previous_) return token;
  const char* const target = previous_;
  ResetLine();
  while (search_ < target) {
    token = GetNextToken(1, 1);
    if (tokenLength_ == 0) break;
  }
  search_ = target;
  return token;
}

char Tokeniser::PeekNextChar() const {
  if (!search_) return 0;
  const char* next = search_;
  while (kel::IsSpace(*next)) ++next;
  return *next;
}

bool Tokeniser::TakeChar(char expected) {
  if (expected == '\0' || PeekNextChar() != expected) return false;
  while (ReadNextChar() != expected) {
  }
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
  if (!first || !std::strchr("=+-*/%<>()&|^!", first)) return 0;
  const char second = text[1];
  if (first == '<' && second == '<') return text[2] == '=' ? 3 : 2;
  if (second == '=' && std::strchr("><+-*/%&|^!=", first)) return 2;
  if (second == first && std::strchr("&|>", first)) return 2;
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
