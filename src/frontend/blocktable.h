#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "frontend/scriptscan.h"

class ScriptLine;

namespace tamber {

/// Which line closes which block of a procedure, worked out in one pass over its lines.
///
/// The families if, while and for are counted independently of each other, each by the first word
/// of a line: a block that crosses another one is for the compiler to find out.
class BlockTable {
 public:
  /// The line that an opening line leads to. For if, elif and elseif: the next branch line or
  /// endif of the same if; for else: its endif; for while and for: their end.
  struct Match {
    uint32_t line = 0;  ///< 0: the procedure ends before there is one
    int32_t error = 0;  ///< of a first token that cannot be read on the way there, else 0
    uint32_t errorLine = 0;
  };

  /// Reads from where the script stands up to "endproc" or the end of the script. The script is
  /// left behind the line it ended with.
  void Build(ScriptLine& script, const TypeWordTest& isTypeWord);

  Match Find(uint32_t openingLine) const;
  /// Line of the "endproc"; 0 when the script ended first.
  uint32_t EndProcLine() const { return endProcLine_; }
  /// Line of the first header of a procedure before that; 0 when there is none.
  uint32_t NestedProcLine() const { return nestedProcLine_; }
  /// Line of a block comment that hides the rest of the script; 0 when there is none.
  uint32_t OpenCommentLine() const { return openCommentLine_; }

 private:
  struct Opener {
    uint32_t line;
    uint32_t match;
  };
  struct Fault {
    uint32_t line;
    int32_t error;
  };
  /// An if that has not met its endif: what still looks for a line.
  struct OpenIf {
    size_t branch;  // the if or the last elif; kNone behind an else
    std::vector<size_t> elseLines;
  };
  struct Pending;
  static constexpr size_t kNone = static_cast<size_t>(-1);

  size_t AddOpener(uint32_t line);
  void Close(size_t opener, uint32_t line);
  void Count(std::string_view word, uint32_t line, Pending& pending);
  void CountBranch(std::string_view word, uint32_t line, Pending& pending);

  std::vector<Opener> openers_;  // by line
  std::vector<Fault> faults_;    // by line
  uint32_t endProcLine_ = 0;
  uint32_t nestedProcLine_ = 0;
  uint32_t openCommentLine_ = 0;
};

}  // namespace tamber
