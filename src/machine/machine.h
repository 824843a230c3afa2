#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/stack.h"
#include "machine/boundcode.h"
#include "machine/runstate.h"
#include "values/store.h"
#include "values/varlist.h"

class TamberContext;
class TamberOperators;

namespace tamber {

class Callable;
struct Local;
class MachineHost;
struct SourcePlace;

/// How a procedure ended.
enum enum_ProcStatus : int32_t {
  PROCSTATUS_ENDED = 1,   ///< ran to its end, or was stopped
  PROCSTATUS_FAILED = 2,  ///< an error ended it
};

/// Runs code: owns the frames of active procedures and their registers.
///
/// A script's calls of script procedures are frames here, not calls of C++ functions; only what
/// goes through a built-in, a handler or another script takes native stack.
class Machine {
 public:
  static constexpr uint32_t kMaxFrames = 1000000;
  /// Less native stack than this ends the run rather than risking the host's.
  static constexpr size_t kStackReserve = 256 * 1024;

  Machine(RunState& run, MachineHost& host);
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  ~Machine();

  /// Runs a procedure whose arguments are on the stack, and leaves its result there.
  enum_ProcStatus RunProcedure(Callable& procedure, Stack& stack);
  /// Before an expression that begins at this place of its logical line is lowered and evaluated.
  /// 0, with the error set, when too little native stack is left.
  int32_t BeginEvaluation(uint32_t sourceOffset);
  /// Runs the code of an expression; 1 leaves one value on the stack, 0 an error in the context.
  int32_t Evaluate(Lowered expression, Stack& stack);
  /// The same of code that was bound before; it may run again while it runs.
  int32_t Evaluate(const BoundCode& code, Stack& stack);
  /// Makes the code of an expression what this machine runs; null leaves an error.
  std::unique_ptr<const BoundCode> Bind(Lowered expression);
  /// Where in its logical line the last evaluation failed, or left an error, from 0.
  uint32_t EvaluationStop() const { return evaluationStop_; }

  bool IsRunning() const { return frameCount_ > 0; }
  /// Where the innermost procedure is; false when none is running.
  bool CurrentPlace(SourcePlace& place) const;
  /// The procedures that are running, the innermost first; of a deep recursion the first of them.
  std::vector<SourcePlace> CallStack() const;

  // The local scope: the names of the running procedure, and what hosts added to it.
  int32_t FindLocal(std::string_view name);
  Variable* GetLocal(uint32_t index);
  uint32_t AddLocal(Variable* variable);
  Variable* RemoveLocal(std::string_view name);
  /// False: no variable that can be replaced is in this place, and nothing was taken over.
  bool ReplaceLocal(uint32_t index, Variable* variable);
  bool CanReplaceLocal(uint32_t index);
  void ClearLocals();
  /// A further, empty local scope, which stands before the names of the running procedure until it
  /// is removed or the procedure ends.
  void CreateLocalScope();
  /// False when there is none of the host's.
  bool RemoveLocalScope();
  bool HasLocals() const;
  /// The locals with their values as they are now, for dumps.
  VarList SnapshotLocals();

  /// A context that another one has called shares what that has made of procedures which both run.
  void ShareFrozenCodes(Machine& caller) { frozen_ = caller.Frozen(); }
  /// Before procedures get numbers that others had, whose codes may be gone. Only while nothing
  /// runs.
  void ForgetFrozenCodes() { frozen_.reset(); }

 private:
  /// Code of frozen procedures as this context runs it, by their numbers.
  struct FrozenCodes {
    std::vector<std::unique_ptr<const BoundCode>> codes[2];
  };
  /// Where the registers of a frame lie: in a chunk, which ends there.
  struct FrameRoom {
    Cell* end = nullptr;
    uint32_t chunk = 0;  ///< 0 is the room's, then those of `chunks_`
  };
  struct Frame {
    const BoundCode* code;
    const Instr* pc;  ///< saved while something else runs
    Cell* base;
    /// Register of the caller that takes the result; null when the end returns to native code.
    Cell* result;
    FrameRoom room;
    uint64_t started;      ///< nanoseconds, while tracing
    uint32_t stackHeight;  ///< of the evaluation stack, when it began
    uint32_t statementCount;

    bool IsBoundary() const { return result == nullptr; }
  };
  struct Chunk {
    CountedBytes counted;
    std::unique_ptr<Cell[]> cells;
    Cell* end;
  };
  /// What a global or a local of another type was converted to, for a register that borrows it.
  struct Converted {
    uint32_t depth;  ///< frames when it was made
    const StatementEntry* statement;
    const Instr* pc;
    Kind kind;
    Cell cell;
  };
  enum class After { Continue, Leave };
  class StackScope;
  /// A local's object, made because somebody asked for it by name; it has the value while the
  /// built-in runs that the frame is in.
  struct LentLocal {
    uint32_t frame;
    uint32_t slot;
    Variable* variable;
  };

  // --- the run loop (machinerun.cpp) ---
  enum_ProcStatus Run();
  /// The steps that were to be counted down have been made. False: the run ends.
  bool CountDown();
  enum_ProcStatus Loop();

  // --- frames (machineframes.cpp) ---
  void PushFrame(const BoundCode* code, Cell* base, const FrameRoom& room, Cell* result);
  void CountReadyFrames() {
    readyFrames_ = observed_ ? 0 : frameRoom_ < mostFrames_ ? frameRoom_ : mostFrames_;
  }
  void FillFrame(Frame& frame, const BoundCode* code, Cell* base, Cell* result,
                 const FrameRoom& room);
  bool TryCall(Frame& caller, const BoundCode* code, Cell* arguments);
  bool PushCall(Callee& callee, Cell* arguments);
  static void ReleaseArguments(const Callable& procedure, Cell* arguments);
  /// Registers for the code at `wanted` in the room, or at the start of the next one's.
  Cell* MakeRoom(Cell* wanted, const BoundCode* code, FrameRoom& room);
  Cell* MakeChunk(const BoundCode* code, FrameRoom& room);
  void LeaveFrame(const Frame& frame);
  void LeaveScopes(const Frame& frame);
  /// Releases the temporaries from `first` on that own something at the frame's instruction.
  static void ReleaseLive(const Frame& frame, uint32_t first = 0);
  const BoundCode* CodeOf(Callable& procedure);
  const BoundCode* FrozenCodeOf(Callable& procedure);
  const std::shared_ptr<FrozenCodes>& Frozen() {
    if (frozen_ == nullptr) frozen_ = std::make_shared<FrozenCodes>();
    return frozen_;
  }
  const BoundCode* Prepare(Callable& procedure);
  /// Null leaves an error.
  std::unique_ptr<const Code> MakeCode(Callable& procedure);
  /// Verifies the code if the context asks for it; false leaves an error.
  bool IsSound(const Code& code, std::string_view name);
  static bool IsConstant(const Code& code);
  static TypeRef BindArgument(const Local& local, Stack& stack, Cell& cell);
  bool BindArguments(Callable& procedure, Stack& stack, Cell* base);
  enum_ProcStatus RunBoundary(const BoundCode* code, Callable* procedure, Stack& stack);
  void TakeRoom();
  void MakeFrames();
  /// What this run is limited to.
  void TakeLimits();
  bool RaiseTooDeep(std::string_view name);
  void LackArguments(const Callable& procedure, const Stack& stack);
  void UseFrames(Frame* frames, uint32_t room) {
    frames_ = frames;
    frameRoom_ = room;
    CountReadyFrames();
  }
  bool HasNativeStack(const KelString& name);
  void PushResult(const Code& code, Cell result);
  bool WrapParameter(const Code& code, Cell* registers, uint32_t slot);
  void TraceEnter(Frame& frame);
  void TraceLeave(const Frame& frame);
  Frame* ScopeFrame();
  uint32_t ScopeNumber();
  VarList* HostScope();
  void DropScopes();
  bool IsObject(const Frame& frame, uint32_t slot) const;
  Variable* LendLocal(Frame& frame, uint32_t slot);
  Variable* LendReference(Frame& frame, uint32_t slot);
  static void TakeBack(const TypeDesc& type, Variable& object, Cell& place);
  void TakeBackLocals();
  Variable* FindLent(uint32_t frame, uint32_t slot) const;
  VarList& ExtraLocals();
  void AppendExtraLocals(VarList& list);
  static void AppendCopies(VarList& list, const VarList& from);

  // --- errors (machineerrors.cpp) ---
  bool Raise(int32_t code, std::string_view text);
  /// Raises that a value does not fit, or that there is no such element; always false.
  bool RaiseMismatch(std::string_view name, const TypeDesc& target, const TypeDesc& value);
  /// Has it told beside the error that was just raised.
  void NoteBeside(const std::string& note);
  bool RaiseBounds(const ArrayData* array, int32_t index);
  After ApplyPolicy(bool statementFailed);
  /// Ends all frames down to the boundary.
  After UnwindAll(enum_ProcStatus status);
  void FaultRemainder();
  void Interrupt();
  bool RunHandler(std::string_view name);
  SourcePlace PlaceOf(const Frame& frame) const;
  static const StatementEntry& StatementAt(const Frame& frame);
  /// Where the frame is in the logical line of its statement.
  static uint32_t SourceOf(const Frame& frame);
  /// The instruction of the built-in that left an error last, if it is one of this code: such an
  /// error is looked at only when the statement is complete. Forgets it.
  std::optional<uint32_t> TakeFailedCall(const Code& code);

  // --- what instructions do off the fast path (machinevalues.cpp) ---
  bool ResolveGlobal(GlobalSlot& slot);
  Variable* FindByName(const Name& name);
  bool LoadGlobal(GlobalSlot& slot, Cell& out);
  bool AddToGlobal(GlobalSlot& slot, Kind kind, Cell value);
  bool StoreGlobal(GlobalSlot& slot, Cell value, bool take);
  bool GlobalAddress(GlobalSlot& slot, Cell& out);
  bool NoVariable(const Name& name, bool stored);
  Variable* LocalObject(const Code& code, Cell* registers, uint32_t slot, bool storing);
  bool LoadObject(const Code& code, Cell* registers, const Instr& at);
  bool StoreObject(const Code& code, Cell* registers, const Instr& at, bool take);
  bool LoadVariableAs(const TypeDesc& type, Variable& variable, Cell& out);
  void Declare(const Code& code, Cell* registers, const Instr& at);
  void SweepBeforeHolding(ArrayData* array, int32_t index);
  bool ElementAt(ArrayData* array, int32_t index, Cell& out);
  bool ElementAsVariable(ArrayData* array, int32_t index, Cell& out);
  bool GlobalElementAt(GlobalSlot& slot, int32_t index, Cell& out);
  bool ElementAs(Kind kind, const ArrayData* array, int32_t index, Cell& out);
  bool AssignElement(Cell& array, int32_t index, Kind kind, Cell value);
  bool StoreElement(Cell& array, int32_t index, Cell value);
  bool StoreGlobalElement(GlobalSlot& slot, int32_t index, Cell value);
  bool StoreElementCopy(Cell& array, int32_t index, Cell value);
  bool ElementAddress(Cell& array, int32_t index, Cell& out);
  bool GlobalElementAddress(GlobalSlot& slot, int32_t index, Cell& out);
  bool BoxElement(Cell& array, int32_t index, Cell& out);
  bool BoxMember(Cell& structure, uint32_t member, Cell& out);
  /// Raises what a store says; throws when there is no memory.
  bool Check(Stored stored, std::string_view name);
  bool CheckElement(Stored stored, const ArrayData* array, int32_t index);
  std::string_view TargetName() const;
  bool HasElement(const ArrayData* array, int32_t index);
  static void PutMember(Cell& structure, uint32_t member, Cell value);
  bool SelectMember(Cell& variable, uint32_t member, const TypeDesc& type);
  bool SelectElement(Cell& variable, int32_t index);
  bool ResizeCell(Cell& array, const TypeDesc& type, int64_t delta);
  bool ResizeVariable(Variable& array, int64_t delta);
  bool AppendCell(Cell& array, const AppendSite& site, Cell value);
  bool AppendToVariable(Variable& array, const TypeDesc& type, Cell value);
  bool ObjectAddress(const Code& code, Cell* registers, uint32_t slot, Cell& out);
  bool CheckReference(Variable& variable, const TypeDesc& type);
  bool AssignTo(Variable& target, const TypeDesc& type, Cell value);
  bool ClearVariable(Variable& variable);
  static void OwnVariable(Cell& cell);
  void KeepConverted(Kind kind, Cell value);
  bool Execute(int32_t operatorIndex, Cell& out);
  bool CallFunction(const CallSite& site, Cell& out);
  bool CallLooking(const CallSite& site, Cell& out);
  /// How a call without the stack ended.
  enum class Called { Returned, Failed, Stopped };
  Cell RunDirect(const CallSite& site, const Cell* arguments);
  template <bool kPure>
  bool IsPlainReturn() const;
  Called CallDirect(const CallSite& site, const Cell* arguments, bool looks, Cell& out);
  static Cell MakeVariableOf(Kind kind, Cell result);
  void NoteThrown(const CallSite& site);
  Called TakeThrown();
  Called FinishDirect(const CallSite& site, Cell result, Cell& out);
  bool CallChosen(const CallSite& site, Cell& out);
  static Cell DefaultResult(const CallSite& site);
  bool TakeResult(const CallSite& site, uint32_t height, Cell& out);
  void LeaveTooLong(uint32_t length);
  bool AppendAsText(StrBuf*& slot, Kind kind, Cell value);
  bool SameText(const StrBuf* a, const StrBuf* b);
  bool SameWholeText(std::string_view left, std::string_view right);
  int32_t CompareTexts(const StrBuf* a, const StrBuf* b);
  bool IsCaseSensitive();
  void SweepArray(ArrayData& array);

  RunState& run_;
  MachineHost& host_;
  TamberContext& context_;  ///< only handed on
  TamberOperators& operators_;
  Stack* stack_ = nullptr;                       ///< evaluation stack of the current run
  const std::atomic<uint32_t>* wake_ = nullptr;  ///< the root context's, while something runs
  /// Of the thread, while something runs: the frames and registers that most calls need.
  struct Room;
  struct SpareRoom;
  std::unique_ptr<Room[]> room_;
  CountedBytes deepBytes_;
  std::unique_ptr<Frame[]> deepFrames_;  ///< of a recursion that has needed more
  Frame* frames_ = nullptr;
  uint32_t frameRoom_ = 0;
  uint32_t mostFrames_ = kMaxFrames;
  RunLimits* limits_ = nullptr;
  int64_t* stepsLeft_ = nullptr;  ///< null while steps are not counted
  /// How many frames there may be without a further look; none while observed code runs.
  uint32_t readyFrames_ = 0;
  uint32_t frameCount_ = 0;
  std::vector<Chunk> chunks_;  ///< beside the room's, and for what is too large for that
  uint32_t nativeDepth_ = 0;   ///< runs inside runs
  bool observed_ = false;      ///< code that counts statements and shows its locals is run
  bool leftZero_ = false;      ///< the failing operator left a 0 in place of its value
  bool unwinding_ = false;     ///< an error ended a nested run, and with it this one
  enum_ProcStatus status_ = PROCSTATUS_ENDED;
  Cell result_ = ZeroCell();  ///< of the boundary frame that ended last
  std::vector<Converted> converted_;
  std::unordered_map<uint32_t, std::unique_ptr<VarList>> extraLocals_;  ///< by frame number
  /// Scopes that the host has made, with the number of the frame that each stands before.
  struct HostScopeEntry {
    uint32_t frame;
    std::unique_ptr<VarList> variables;
  };
  std::vector<HostScopeEntry> hostScopes_;
  std::vector<LentLocal> lent_;  ///< those of inner frames last
  uint32_t inBuiltIn_ = 0;       ///< number of the frame whose built-in runs
  const GlobalUse caseSwitchUse_;
  GlobalSlot caseSwitch_{&caseSwitchUse_};
  CallError callError_;
  const Instr* failedCall_ = nullptr;  ///< of the built-in that left an error last
  uint32_t evaluationStop_ = 0;
  std::shared_ptr<FrozenCodes> frozen_;  ///< null until it is needed
};

}  // namespace tamber
