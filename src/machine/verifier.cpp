#include "machine/verifier.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <set>
#include <vector>

#include "machine/callable.h"
#include "machine/framestate.h"

namespace tamber {
namespace {

class Verifier {
 public:
  explicit Verifier(const Code& code) : code_(code) {}

  std::string Run() {
    if (code_.instrs.empty()) return "code without instructions";
    CheckTables();
    if (wrong_.empty()) FindLeaders();
    if (!wrong_.empty()) return Report();
    Reach(0, FrameState(code_));
    while (wrong_.empty() && !pending_.empty()) {
      const uint32_t pc = *pending_.begin();
      pending_.erase(pending_.begin());
      Follow(pc, states_.at(pc));
    }
    return Report();
  }

 private:
  std::string Report() const {
    if (wrong_.empty()) return {};
    return "instruction " + std::to_string(at_) + " (" +
           std::string(at_ < code_.instrs.size() && IsKnown(code_.instrs[at_].op)
                           ? InfoOf(code_.instrs[at_].op).name
                           : "none") +
           "): " + wrong_;
  }
  static bool IsKnown(Op op) { return static_cast<uint16_t>(op) < kOpCount; }
  bool Wrong(uint32_t pc, std::string_view what) {
    if (wrong_.empty()) {
      at_ = pc;
      wrong_ = what;
    }
    return false;
  }
  uint32_t Size() const { return static_cast<uint32_t>(code_.instrs.size()); }

  void CheckTables() {
    if (code_.constants.size() != code_.constantKinds.size()) Wrong(0, "constants without kinds");
    uint32_t last = 0;
    for (const StatementEntry& entry : code_.statements) {
      if (entry.begin < last || entry.begin >= Size()) Wrong(entry.begin, "statement out of order");
      last = entry.begin;
    }
    if (code_.statements.empty() || code_.statements.front().begin != 0)
      Wrong(0, "code before the first statement");
    for (const LiveTemps& live : code_.live)
      if (live.first + size_t{live.count} > code_.liveTemps.size())
        Wrong(live.pc, "list of values");
    const auto byPc = [](const LiveTemps& x, const LiveTemps& y) { return x.pc < y.pc; };
    if (!std::is_sorted(code_.live.begin(), code_.live.end(), byPc)) Wrong(0, "lists out of order");
  }

  bool IsStatement(uint32_t pc) const {
    const auto found =
        std::lower_bound(code_.statements.begin(), code_.statements.end(), pc,
                         [](const StatementEntry& entry, uint32_t at) { return entry.begin < at; });
    return found != code_.statements.end() && found->begin == pc;
  }

  /// `isJump`: it may also stay within its statement, as those of a long condition do.
  void AddLeader(uint32_t from, int64_t target, bool isJump) {
    const auto to = static_cast<uint32_t>(target);
    const bool inside = target >= 0 && target < Size();
    const bool lands = inside && (IsStatement(to) ||
                                  (isJump && code_.FindStatement(to) == code_.FindStatement(from)));
    if (lands)
      leaders_.insert(to);
    else
      Wrong(from, "leads to no statement");
  }

  void FindLeaders() {
    for (uint32_t pc = 0; pc < Size(); ++pc) {
      if (!IsKnown(code_.instrs[pc].op)) {
        Wrong(pc, "no instruction");
        return;
      }
      if (InfoOf(code_.instrs[pc].op).IsJump()) AddLeader(pc, Target(pc), true);
    }
    for (const StatementEntry& entry : code_.statements) {
      const Detour& detour = code_.FindDetour(entry);
      for (uint32_t way : {entry.resume, detour.resumeEmpty, detour.retry})
        if (way != StatementEntry::kNone) AddLeader(entry.begin, way, false);
    }
  }

  int64_t Target(uint32_t pc) const {
    const Instr& at = code_.instrs[pc];
    const int32_t distance = InfoOf(at.op).IsShortJump() ? static_cast<int16_t>(at.c) : at.Wide();
    return int64_t{pc} + distance;
  }

  /// Control comes to `pc` with this state.
  void Reach(uint32_t pc, const FrameState& state) {
    const auto [known, isNew] = states_.try_emplace(pc, state);
    std::string_view error;
    const bool changed = isNew || known->second.Merge(state, error);
    if (!error.empty()) Wrong(pc, error);
    if (changed) pending_.insert(pc);
  }

  void Follow(uint32_t pc, FrameState state) {
    while (true) {
      const Instr& at = code_.instrs[pc];
      const std::string_view wrong = state.Check(at);
      if (!wrong.empty()) {
        Wrong(pc, wrong);
        return;
      }
      const OpInfo& info = InfoOf(at.op);
      if (at.op == Op::AddIKL && (pc + 1 == Size() || code_.instrs[pc + 1].op != Op::Loop)) {
        Wrong(pc, "goes on with something else than a loop");
        return;
      }
      if (info.MayLeave()) CheckLive(pc, at, state);
      if (info.Has(OpInfo::Fails)) FollowFailure(pc, info, state);
      state.Apply(at);
      if (info.IsJump()) Reach(static_cast<uint32_t>(Target(pc)), state);
      if (info.Has(OpInfo::Ends)) {
        CheckEnd(pc, info, state);
        return;
      }
      if (++pc == Size()) {
        Wrong(pc - 1, "runs out of the code");
        return;
      }
      if (leaders_.count(pc) != 0) {
        Reach(pc, state);
        return;
      }
    }
  }

  void CheckEnd(uint32_t pc, const OpInfo& info, const FrameState& state) {
    const bool leaves = !info.IsJump() && !info.Has(OpInfo::Fails | OpInfo::Stops);
    if (leaves && !state.OwnsNothing()) Wrong(pc, "ends with a value that nobody released");
  }

  /// What a run releases when it leaves here must be what is owned here.
  void CheckLive(uint32_t pc, const Instr& at, const FrameState& state) {
    owned_.clear();
    state.FindOwned(at, owned_);
    const LiveTemps* live = code_.FindLive(pc);
    const uint32_t count = live != nullptr ? live->count : 0;
    const bool same =
        count == owned_.size() && (count == 0 || std::equal(owned_.begin(), owned_.end(),
                                                            code_.liveTemps.begin() + live->first));
    if (!same) Wrong(pc, "releases something else than it owns");
  }

  void FollowFailure(uint32_t pc, const OpInfo& info, const FrameState& state) {
    // Text that is evaluated answers to whoever evaluates it.
    if (code_.procedure == nullptr) return;
    const StatementEntry& entry = *code_.FindStatement(pc);
    const auto go = [&](uint32_t way, uint32_t keep) {
      FrameState failed = state;
      failed.Fail(keep);
      Reach(way, failed);
    };
    const uint32_t first = code_.procedure->Locals().Count();
    const Detour& detour = code_.FindDetour(entry);
    if (detour.retry != StatementEntry::kNone) go(detour.retry, first);
    if (info.Has(OpInfo::Zero) && detour.resumeEmpty != StatementEntry::kNone)
      go(detour.resumeEmpty, detour.keep);
    if (entry.resume == StatementEntry::kNone)
      Wrong(pc, "fails without a way to go on");
    else
      go(entry.resume, first);
  }

  const Code& code_;
  std::set<uint32_t> leaders_;
  std::map<uint32_t, FrameState> states_;
  std::set<uint32_t> pending_;
  std::vector<OwnedRegister> owned_;
  std::string wrong_;
  uint32_t at_ = 0;
};

}  // namespace

std::string VerifyCode(const Code& code) { return Verifier(code).Run(); }

namespace {

#ifdef NDEBUG
std::atomic<bool> verifiesByDefault{false};
#else
std::atomic<bool> verifiesByDefault{true};
#endif

}  // namespace

bool VerifiesByDefault() { return verifiesByDefault.load(std::memory_order_relaxed); }

void SetVerifiesByDefault(bool verifies) {
  verifiesByDefault.store(verifies, std::memory_order_relaxed);
}

}  // namespace tamber
