#pragma once

#include <memory>

#include "frontend/scripttext.h"
#include "kel/export.h"
#include "kel/kelstring.h"
#include "text/tokenise.h"

namespace tamber {

/// What an error says of a block comment that nothing closes.
inline constexpr std::string_view kOpenComment = "/* is never closed";

}  // namespace tamber

/// The text of one script and the place where it is being read.
///
/// A script is read by logical lines: a line that ends in "\" goes on with the next one. Line
/// numbers are those of reports; the number of a logical line is that of its first physical line.
class TAMBER_API ScriptLine {
 public:
  /// `origin`: where the text begins in its logical line, when it is a part of one.
  explicit ScriptLine(std::shared_ptr<const tamber::ScriptText> text, uint32_t origin = 0);
  ScriptLine(const ScriptLine&) = delete;
  ScriptLine& operator=(const ScriptLine&) = delete;
  virtual ~ScriptLine();

  /// The script's path as given, or the name of a buffer.
  const KelString& GetName() const { return text_->Name(); }
  const std::shared_ptr<const tamber::ScriptText>& GetText() const { return text_; }

  /// Reads the next logical line into the tokeniser; blank for a blank or comment line. False at
  /// the end of the script, with ERR_SCRNOMORELINES as the tokeniser's last error.
  bool ReadLogicalLine();
  /// Reads the logical line that begins on this physical line.
  bool ReadLineAt(uint32_t line);
  /// The text of the current logical line.
  KelString GetLogicalLine() const;

  /// Number of the next physical line to be read.
  uint32_t GetNextLine() const { return nextLine_; }
  void SetNextLine(uint32_t line) { nextLine_ = line; }
  /// Number of the physical line on which the current logical line begins.
  uint32_t GetStatementLine() const { return statementLine_; }
  /// What is taken off a line number to get the line's place in this text, counted from 1.
  uint32_t GetLineOffset() const { return text_->FirstLine() - 1; }
  /// A physical line, without its end; "" when there is none of that number.
  KelString GetLineText(uint32_t line) const { return KelString(text_->Line(line)); }

  /// Where reading stands; taken before a look-ahead and restored after it.
  struct Position {
    uint32_t nextLine;
    uint32_t statementLine;
  };
  Position GetPosition() const { return {nextLine_, statementLine_}; }
  /// Where in the logical line the token last read begins, or `name` when it is a token at or
  /// before that: a byte, counted from 0.
  uint32_t GetOffset(std::string_view name) const;
  /// What an error shows of `text`: the whole word when it is a token that a letter beyond ASCII
  /// cut off.
  std::string_view Whole(std::string_view text) const {
    return text == tokeniser_.Token() ? tokeniser_.WholeToken() : text;
  }
  /// Goes back to a position and to the start of the logical line that was current then.
  void SetPosition(const Position& position);

  Tokeniser& GetTokeniser() { return tokeniser_; }

  /// Called when the current logical line begins with "/*": goes on behind the line with the first
  /// "*/", whatever stands between. False when the script ends inside the comment; whoever compiles
  /// then says so with ERR_SCRNOMORELINES and kOpenComment.
  [[nodiscard]] bool SkipBlockComment();

  /// Appends the lines around the current one, `span` / 2 on each side.
  void DumpSource(KelString& out, int32_t span) const {
    text_->DumpSource(out, statementLine_, span);
  }

 private:
  void ReadContinued(std::string_view line);

  std::shared_ptr<const tamber::ScriptText> text_;
  uint32_t nextLine_;
  uint32_t statementLine_;
  Tokeniser tokeniser_;
};
