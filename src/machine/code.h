#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "functions/function.h"
#include "machine/instruction.h"
#include "values/typedesc.h"

namespace tamber {

class Callable;

/// A name of the global or external scope, as the compiler saw it.
struct GlobalUse {
  Name name;
  TypeRef type;
};

/// A bound call of a built-in; calls of the same kind share one.
struct CallSite {
  std::shared_ptr<const TamberFunction> function;
  uint32_t arguments = 0;
  Kind resultKind = Kind::Any;  ///< Any: the result is taken as a variable
  /// The type of an argument was unknown: the overload is chosen, and checked, by what comes.
  bool choosesWhenRun = false;
  Passed passed = {};  ///< by a call that needs no stack

  bool operator==(const CallSite&) const = default;
};

struct AppendSite {
  TypeRef array;
  TypeRef value;
};

/// What the error policy needs to know about one statement's code.
struct StatementEntry {
  static constexpr uint32_t kNone = 0xFFFFFFFF;
  static constexpr uint32_t kMaxStatement = 0x3FFFFFFF;  ///< no script is that long
  uint32_t begin = 0;                                    ///< first instruction
  uint32_t statement : 30 = 0;                           ///< number of the statement
  /// Statements of its group behind this one: counted when the group began, not run when the script
  /// ends here.
  uint32_t following : 2 = 0;
  uint32_t line = 0;
  /// Where to go on when the statement failed.
  uint32_t resume = kNone;
};

/// What few statements have besides.
struct Detour {
  uint32_t entry = 0;  ///< position of the statement's entry
  /// Where to go on when it failed in a division, with the empty value of its type; kNone: as after
  /// every other error.
  uint32_t resumeEmpty = StatementEntry::kNone;
  /// Where the statement is done again, in the order in which its parts may fail, before its
  /// failing counts; kNone: it counts at once.
  uint32_t retry = StatementEntry::kNone;
  /// Temporaries below this one are still in use at `resumeEmpty`.
  uint16_t keep = 0;
};

/// Where in their logical lines instructions come from. Kept in few bytes: only errors ask.
class SourceTable {
 public:
  /// The instructions from `pc` on come from `offset`; later ones follow.
  void Add(uint32_t pc, uint32_t offset);
  /// 0 before the first.
  uint32_t Find(uint32_t pc) const;
  void ShrinkToFit();

 private:
  /// Where one of every so many begins, so that a look reads no more than those.
  struct Mark {
    uint32_t pc;
    uint32_t offset;
    uint32_t at;  ///< in the bytes, of what follows it
  };
  void PutNumber(uint32_t value);

  std::vector<Mark> marks_;
  std::vector<uint8_t> bytes_;  // for each one its distances from the one before
  uint32_t sinceMark_ = 0;
  uint32_t lastPc_ = 0;
  uint32_t lastOffset_ = 0;
};

/// Temporaries that own something while an instruction runs that may fail or call.
struct LiveTemps {
  uint32_t pc;
  uint32_t first;  ///< into Code::liveTemps
  uint32_t count;
};
struct OwnedRegister {
  uint16_t reg;
  Kind kind;
  bool operator==(const OwnedRegister&) const = default;
};

/// The code that a procedure or an expression runs as. Nothing changes it once it is made.
class Code {
 public:
  Code() = default;
  Code(const Code&) = delete;
  Code& operator=(const Code&) = delete;
  ~Code();

  std::vector<Instr> instrs;
  std::vector<Cell> constants;  ///< texts are owned, see constantKinds
  std::vector<Kind> constantKinds;
  std::vector<std::string> texts;
  std::vector<std::string> failNotes;  ///< of each of the texts: what is told beside it
  std::vector<Name> names;
  std::vector<TypeRef> types;
  std::vector<GlobalUse> globals;
  std::vector<Callable*> procedures;
  std::vector<CallSite> sites;
  std::vector<AppendSite> appends;
  std::vector<StatementEntry> statements;  ///< ascending by begin
  std::vector<Detour> detours;             ///< ascending by entry
  SourceTable sources;
  std::vector<LiveTemps> live;  ///< ascending by pc
  std::vector<OwnedRegister> liveTemps;
  std::vector<OwnedRegister> ownedLocals;  ///< released when the frame ends; zero at its start
  uint32_t registers = 1;
  uint32_t parameters = 0;
  /// By slot: the statement that declares the local; it is found by name below it.
  std::vector<uint32_t> declaredAt;
  /// Locals that live in variables can be found by name while this runs.
  bool localsAreObjects = false;
  /// A local named StrCase decides how texts compare, in place of the global.
  bool ownsCaseSwitch = false;
  const Callable* procedure = nullptr;  ///< null: an expression outside any procedure
  TypeRef returnType;

  /// Gives the code strings of its own in place of those that it shares with expressions.
  void SeparateConstants();
  /// What it holds, strings that others share not among that.
  size_t Bytes() const;
  /// Gives back the room that the tables do not need.
  void ShrinkToFit();
  const StatementEntry* FindStatement(uint32_t pc) const;
  /// Those of an entry of this code.
  const Detour& FindDetour(const StatementEntry& entry) const;
  uint32_t FindSource(uint32_t pc) const { return sources.Find(pc); }
  const LiveTemps* FindLive(uint32_t pc) const;
};

/// Code, or what a procedure or an expression has too much of for the instruction format.
struct Lowered {
  std::unique_ptr<Code> code;
  std::string_view exceeded;  ///< a literal
};

}  // namespace tamber
