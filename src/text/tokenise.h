#pragma once

#include <cstdint>
#include <string_view>

#include "kel/export.h"
#include "kel/kelascii.h"

/// Cuts one line of script text into tokens.
///
/// Holds a private copy of one line at a time. A token is a part of that, or, when it is not
/// written as it is meant, stands in one buffer that the object owns and the next read overwrites,
/// so a caller that keeps a token copies it; reading allocates nothing. Errors are left in the last
/// error, which stays until the next `SetLine`: a misplaced or missing quote and a line too large
/// to hold.
class TAMBER_API Tokeniser {
 public:
  /// The last errors of its own, by their numbers in the list of errors (values/errcodes.h).
  static constexpr int kNoMemory = 20113;
  static constexpr int kBadQuote = 20602;
  static constexpr int kNoQuote = 20603;

  /// No line.
  Tokeniser() = default;
  explicit Tokeniser(const char* line);
  Tokeniser(const Tokeniser& other);
  Tokeniser& operator=(const Tokeniser& other);
  virtual ~Tokeniser();

  /// Takes a copy of the line, up to its first NUL, and stands at its start. Always 1.
  int SetLine(const char* line);
  int SetLine(std::string_view line);
  /// The same for a line without NULs.
  void SetWholeLine(std::string_view line);
  /// Back to the start of the line.
  void ResetLine();

  /// Reads the next token: "" at the end of the line and before a comment.
  ///
  /// Quoted tokens keep their quotes. With `convertEscapes` the escapes in double quotes are
  /// decoded, without it they stay as written. With `reportErrors` a missing or misplaced quote
  /// sets the last error. A decoded token may hold NULs: `GetTokenLength` is its length.
  char* GetNextToken(int convertEscapes, int reportErrors);
  /// The same, as a part of the line where it is one; good until the next read.
  std::string_view ReadToken(bool convertEscapes = true, bool reportErrors = true);
  /// The token last read.
  char* GetCurrentToken();
  /// Steps back one token: returns the one before the last, and the last is read again next. Takes
  /// time in proportion to the line, and goes back one step only.
  char* GetPreviousToken();

  /// The next character that is no white space, without moving; 0 at the end of the line.
  char PeekNextChar() const { return search_ != nullptr ? *SkipSpace(search_) : '\0'; }
  /// The next character, whatever it is; 0 at the end of the line.
  char ReadNextChar();
  /// Moves behind the next character that is not white space when it is `expected`; else stays.
  bool TakeChar(char expected);

  /// The read position: a pointer into the private copy, null without a line.
  const char* GetSearchPtr() const { return search_; }
  /// Moves to a position that `GetSearchPtr` returned on this line, or any between the line's start
  /// and its NUL; other pointers change nothing.
  void SetSearch(const char* position);

  /// Whether `//`, `;` and `#` between tokens end the line; they do by default.
  void SetHandleComments(bool handle) { handleComments_ = handle; }

  int GetLastError() const { return lastError_; }
  void SetLastError(int error) { lastError_ = error; }
  unsigned int GetTokenLength() const { return tokenLength_; }

  /// 1 when an operator token begins at `text`.
  static int IsToken(const char* text) { return TokenSize(text) != 0; }
  /// 1 when a comment that ends the line begins at `text`.
  static int IsComment(const char* text);

  /// The token last read, until the next read.
  std::string_view Token() const { return {token_, tokenLength_}; }
  /// Whether the token last read is this word, in any case.
  bool TokenIs(std::string_view word) const;
  /// Where the token last read begins; the end of the line when there was none. Null without a
  /// line.
  const char* TokenStart() const { return SkipSpace(previous_); }
  /// The token last read together with what stands around it when letters beyond ASCII are among
  /// that: to the language they are no letters, to the author all is one word.
  std::string_view WholeToken() const;
  /// What has not been read yet.
  std::string_view Rest() const;
  const char* LineStart() const { return lineBuffer_; }
  /// The NUL that ends the line; null without a line.
  const char* LineEnd() const { return lineEnd_; }

  /// When the line is a part of a longer one: where in that it begins. Stays for later lines.
  void SetOrigin(uint32_t offset) { origin_ = offset; }
  uint32_t Origin() const { return origin_; }
  /// A position in the line as an offset in the whole line.
  uint32_t OffsetOf(const char* position) const {
    return position == nullptr ? origin_ : origin_ + static_cast<uint32_t>(position - lineBuffer_);
  }
  /// Where the token last read begins, and where the next one will.
  uint32_t TokenOffset() const { return OffsetOf(TokenStart()); }
  uint32_t NextOffset() const { return OffsetOf(SkipSpace(search_)); }

 private:
  static unsigned int TokenSize(const char* text);
  /// The line ends with a NUL, which is no white space.
  static const char* SkipSpace(const char* position) {
    constexpr size_t kMany = 4096;
    if (position == nullptr || !kel::IsSpace(*position)) return position;
    const char* const far = position + kMany;
    while (kel::IsSpace(*position) && position != far) ++position;
    return position != far ? position : SkipMuchSpace(position);
  }
  static const char* SkipMuchSpace(const char* position);
  /// The first character from here on that does not pass. In a long line it looks for a stop.
  template <class Passes>
  const char* Skip(const char* position, const Passes& passes) const;
  void ClearToken();
  void TakeToken(const char* end);
  void ReadString(bool convertEscapes, bool reportErrors);
  void ConvertString(bool reportErrors);
  void ReadCharacter(bool reportErrors);
  void ReadWord(bool reportErrors);
  void ReadNumber(bool reportErrors);
  void CloseQuoted(const char* end, char quote, bool reportErrors);
  char* CopyToken();
  char ConvertEscape();
  bool Reserve(size_t length);

  int lastError_ = 0;
  unsigned int tokenLength_ = 0;
  unsigned int bufferSize_ = 0;
  char* lineBuffer_ = nullptr;
  char* tokenBuffer_ = nullptr;
  const char* token_ = "";
  const char* search_ = nullptr;
  const char* previous_ = nullptr;
  bool handleComments_ = true;
  bool isLong_ = false;
  uint32_t origin_ = 0;
  char noToken_ = 0;  // what is returned while there is no buffer
  const char* lineEnd_ = nullptr;
};
