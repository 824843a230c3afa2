#include "context/session.h"

#include <algorithm>
#include <new>
#include <string>

#include "context/contextstate.h"
#include "kel/clock.h"
#include "kel/hostpath.h"
#include "kel/kelascii.h"
#include "kel/notice.h"
#include "kel/pathparser.h"
#include "kel/sessionstore.h"
#include "kel/stop.h"
#include "machine/runlimits.h"
#include "values/cellops.h"
#include "values/errcodes.h"
#include "values/leftbehind.h"
#include "values/settings.h"
#include "values/valuesession.h"
#include "values/varstring.h"

namespace tamber {
namespace {

constexpr std::string_view kAllSessions = "session/";
constexpr const char* kSessionFile = "TamberSessions";
constexpr int32_t kLongestTimeout = 600'000;

std::string KeyOf(uint32_t id) { return std::string(kAllSessions) + std::to_string(id) + "/"; }

/// A leading "/" or a drive; a leading "\" does not count. An address is beside nothing.
bool IsAbsoluteSessionFile(const KelString& file) {
  return kel::IsStoreAddress(file.View()) || file[0] == '/' ||
         (file.GetLength() > 1 && file[1] == ':');
}

KelString BesideIni(const ContextState& state, const KelString& file) {
  PathParser beside(state.IniFilePath());
  beside.SetFileName(file);
  return beside.GetPath();
}

KelString SessionFileOf(const ContextState& state, const Settings& ini) {
  KelString file = ini.Text(IniKey::SessionFile);
  if (file.IsEmpty()) file = kSessionFile;
  return IsAbsoluteSessionFile(file) ? file : BesideIni(state, file);
}

/// Which store it is, and what it is called in the log.
struct StorePlace {
  KelString spec;
  KelString shown;
  kel::StoreAccess access;
};

kel::StoreAccess StoreAccessOf(const Settings& ini) {
  kel::StoreAccess access;
  access.user = ini.Text(IniKey::SessionUser).Str();
  access.password = ini.Text(IniKey::SessionPassword).Str();
  access.caFile = kel::HostPath(ini.Text(IniKey::SessionCaFile));
  access.certFile = kel::HostPath(ini.Text(IniKey::SessionCertFile));
  access.keyFile = kel::HostPath(ini.Text(IniKey::SessionKeyFile));
  access.milliseconds = std::clamp(ini.Integer(IniKey::SessionTimeout), 1, kLongestTimeout);
  return access;
}

/// Whether the policy lets the store's file be used: one that the host has named wherever scripts
/// cannot decide what it is, any other where they may write. Then no link is followed to it.
bool MayUseFile(const ContextState& state, StorePlace& store, bool isHosts) {
  const kel::FilePolicy& policy = state.config.filePolicy;
  const kel::Place place = isHosts ? policy.FindForHost(store.spec.View(), kel::Access::Write)
                                   : policy.Find(store.spec.View(), kel::Access::Write);
  if (place.IsRefused()) return false;
  store.access.followsLinks = place.IsFound() && !place.IsConfined();
  if (place.IsConfined()) store.spec = KelString(place.RealPath());
  return true;
}

/// Sessions are kept on a server when the INI file names one, else in a file. An address that names
/// no server stays one, and fails. An INI file that scripts may write names nothing that they may
/// not use.
StorePlace StorePlaceOf(const ContextState& state) {
  const Settings ini = state.Ini();
  StorePlace place{ini.Text(IniKey::SessionStore), {}, StoreAccessOf(ini)};
  place.access.isServer = !place.spec.IsEmpty();
  if (place.spec.IsEmpty()) place.spec = SessionFileOf(state, ini);
  const bool isAddress = kel::IsStoreAddress(place.spec.View());
  const bool isServer = place.access.isServer || isAddress;
  place.shown = place.access.isServer && !isAddress
                    ? KelString("SessionStore")
                    : KelString(kel::ShownStoreAddress(place.spec.View()));
  const bool trusted = state.TrustsIni();
  const bool allowed = isServer ? trusted || state.config.filePolicy.AllowsNetwork()
                                : MayUseFile(state, place, trusted);
  if (allowed) return place;
  state.debug.Logf(KelDebug::Level::Error, "Session store %S: refused by the host's file policy",
                   place.shown);
  if (isServer) {
    place.access.isRefused = true;
    return place;
  }
  const KelString file = BesideIni(state, kSessionFile);
  StorePlace fallback{file, file, {}};
  if (!MayUseFile(state, fallback, true)) fallback.access.isRefused = true;
  return fallback;
}

/// Notes why the store has failed since the last look, and logs it. True when it did.
bool NoteFault(ContextState& state) {
  const std::string fault = state.session.store->TakeFault();
  if (fault.empty()) return false;
  state.session.fault = fault;
  state.debug.Logf(KelDebug::Level::Error, "Session store %S: %S", state.session.path, fault);
  return true;
}

/// Does work that waits for the store, until a stop is asked for: then that is the fault, and
/// false. What was asked for before may be the reason for this work.
template <class Work>
bool UntilStopped(ContextState& state, const char* fault, Work&& work) {
  const kel::StopWord stops(state.run.rootWake);
  const kel::Interruptible interruptible(!state.run.IsStopRequested());
  const LeavingBehind leaving(state.run.rootLeft);
  try {
    work();
    return true;
  } catch (const kel::Interrupted&) {
    state.session.fault = fault;
    return false;
  }
}

void SelectSession(ContextState& state, uint32_t id) {
  const StorePlace place = StorePlaceOf(state);
  if (state.session.id != id || state.session.path != place.shown) state.session.stored.clear();
  state.session.id = id;
  state.session.path = place.shown;
  state.session.store = kel::OpenSessionStore(place.spec.View(), place.access);
  if (id != 0) state.session.store->SetInteger(KeyOf(id), kel::UnixSeconds());
  state.session.stampFault.Clear();
  if (NoteFault(state) && id != 0) state.session.stampFault = state.session.fault;
}

bool IsSessionStored(ContextState& state, uint32_t id) {
  SelectSession(state, state.session.id);
  SessionStore& store = *state.session.store;
  const bool stored = store.Exists(KeyOf(id)) || !store.SubKeys(KeyOf(id)).empty();
  NoteFault(state);
  return stored;
}

void Expire(ContextState& state, uint32_t maxAgeSeconds) {
  SelectSession(state, state.session.id);
  SessionStore& store = *state.session.store;
  const uint32_t cutoff = kel::UnixSeconds() - maxAgeSeconds;
  for (const std::string& session : store.Children(kAllSessions)) {
    int64_t stamp = 0;
    store.GetInteger(session, stamp);
    // No stamp is an old one, unless it only could not be read.
    if (NoteFault(state)) return;
    if (static_cast<uint32_t>(stamp) < cutoff) store.DeleteTree(session);
  }
  NoteFault(state);
}

}  // namespace

SessionReading::SessionReading(ContextState& state) : state_(state) {
  if (state.session.id == 0 || state.session.store == nullptr || state.session.reading) return;
  store_ = state.session.store;
  store_->BeginReading(KeyOf(state.session.id));
  state.session.reading = true;
}

SessionReading::~SessionReading() {
  if (store_ == nullptr) return;
  store_->EndReading();
  state_.session.reading = false;
  try {
    if (NoteFault(state_)) state_.session.isUnloaded = true;
  } catch (const std::bad_alloc&) {
    state_.session.isUnloaded = true;
  }
}

namespace {

bool HasSession(const ContextState& state) {
  return state.session.id != 0 && state.session.store != nullptr && state.scopes.globals != nullptr;
}

template <class Action>
void ForSessionVariables(const ContextState& state, Action&& action) {
  for (uint32_t i = 0; i < state.scopes.globals->GetSize(); ++i) {
    Variable& variable = *state.scopes.globals->GetVariable(i);
    if ((variable.GetVarFlags() & Variable::Session) == 0) continue;
    // A called script has copies of its callers' variables, which are theirs to save.
    if (state.scopes.inherited.count(kel::Lowered(variable.OwnName().View())) != 0) continue;
    action(variable);
  }
}

/// Reads from another store and notes when something is not there.
class WatchedStore final : public SessionStore {
 public:
  explicit WatchedStore(SessionStore& store) : store_(store) {}
  bool SetInteger(std::string_view, int64_t) override { return false; }
  bool SetText(std::string_view, std::string_view) override { return false; }
  bool DeleteTree(std::string_view) override { return false; }
  bool GetInteger(std::string_view key, int64_t& value) override {
    return Note(store_.GetInteger(key, value));
  }
  bool GetText(std::string_view key, std::string& value) override {
    return Note(store_.GetText(key, value));
  }
  /// A structure has no value under its own key, only below.
  bool Exists(std::string_view key) override { return store_.Exists(key); }
  std::vector<std::string> SubKeys(std::string_view prefix) override {
    std::vector<std::string> keys = store_.SubKeys(prefix);
    Note(!keys.empty());
    return keys;
  }
  /// Whether everything was there that was asked for.
  bool IsComplete() const { return isComplete_; }

 private:
  bool Note(bool found) {
    isComplete_ = isComplete_ && found;
    return found;
  }

  SessionStore& store_;
  bool isComplete_ = true;
};

void KeepStored(SessionState& session, const Variable& variable) {
  session.stored[kel::Lowered(variable.OwnName().View())].reset(variable.Clone());
}

void StoreVariable(SessionState& session, Variable& variable) {
  const std::string name = kel::Lowered(variable.OwnName().View());
  const auto stored = session.stored.find(name);
  if (stored != session.stored.end() && KindOf(*stored->second) == KindOf(variable)) {
    StoreChanges(variable, *stored->second, KeyOf(session.id) + name, *session.store);
  } else {
    variable.StoreToSession(session.id, session.store.get());
  }
}

}  // namespace

bool HasSessionVariables(const ContextState& state) {
  bool found = false;
  if (HasSession(state)) ForSessionVariables(state, [&](Variable&) { found = true; });
  return found;
}

void LoadSessionVariable(ContextState& state, Variable& variable) {
  WatchedStore store(*state.session.store);
  try {
    variable.LoadFromSession(state.session.id, &store);
  } catch (const kel::Interrupted&) {
    // Half of a value must not take the place of the whole one.
    state.session.isUnloaded = true;
    throw;
  }
  if (store.IsComplete()) KeepStored(state.session, variable);
}

namespace {

/// Between the store's beginning and its commit.
bool SaveChanges(ContextState& state, bool isThere) {
  SessionState& session = state.session;
  if (!isThere || !session.stampFault.IsEmpty())
    session.store->SetInteger(KeyOf(session.id), kel::UnixSeconds());
  ForSessionVariables(state, [&](Variable& variable) { StoreVariable(session, variable); });
  const bool saved = session.store->Commit();
  if (NoteFault(state) || !saved) {
    session.stored.clear();  // nobody knows what the store holds now
    return false;
  }
  ForSessionVariables(state, [&](Variable& variable) { KeepStored(session, variable); });
  if (session.fault == session.stampFault) session.fault.Clear();
  session.stampFault.Clear();
  return true;
}

}  // namespace

bool SaveSessionVariables(ContextState& state) {
  if (!HasSession(state)) return false;
  SessionState& session = state.session;
  if (session.isUnloaded) {
    // The store still holds what these variables should have begun with.
    state.debug.Logf(KelDebug::Level::Error,
                     "Session store %S: not saved, because it could not be loaded", session.path);
    return false;
  }
  if (session.store->Renew()) session.stored.clear();
  bool isThere = false;
  const auto look = [&] { isThere = session.store->Exists(KeyOf(session.id)); };
  if (!UntilStopped(state, "saving was stopped", look) || NoteFault(state)) return false;
  // Removed since it was loaded, with all that it held.
  if (!isThere) session.stored.clear();
  session.store->Begin();
  bool isSaved = false;
  if (UntilStopped(state, "saving was stopped", [&] { isSaved = SaveChanges(state, isThere); }))
    return isSaved;
  session.store->Begin();  // forgets what has been gathered
  session.store->Commit();
  session.stored.clear();
  return false;
}

bool LoadSessionVariables(ContextState& state) {
  SessionState& session = state.session;
  // Until all of them are there, they are worth nothing.
  session.isUnloaded = true;
  session.stored.clear();
  session.store->Renew();
  session.store->BeginReading(KeyOf(session.id));
  const bool isWhole = UntilStopped(state, "loading was stopped", [&] {
    ForSessionVariables(state, [&](Variable& variable) { LoadSessionVariable(state, variable); });
  });
  session.store->EndReading();
  session.isUnloaded = !isWhole || NoteFault(state);
  return !session.isUnloaded;
}

namespace {

/// Negative values are no limit, as 0 is.
void ReadTransferLimits(const Settings& ini, kel::TransferLimits& limits) {
  constexpr uint64_t kKilobyte = 1024;
  const auto read = [&ini](IniKey key) {
    return static_cast<uint32_t>(std::max(ini.Integer(key), 0));
  };
  limits.seconds = read(IniKey::TransferTime);
  limits.bytes = read(IniKey::TransferSize) * kKilobyte;
}

/// What cannot be read limits as tightly as can be: nothing that was meant to be bounded runs free.
void ReadLimits(const Settings& ini, RunState& run) {
  if (!ini.AreThere() && run.Limits() == nullptr) return;
  TamberLimits limits;
  bool limited = false;
  for (size_t i = 0; i < kLimitCount; ++i) {
    const LimitInfo& info = LimitTable()[i];
    const KelString text = ini.Text(info.key);
    uint64_t& value = limits.*info.member;
    if (!ReadLimit(static_cast<Limit>(i), text.View(), value)) {
      kel::Notice("tamber.ini",
                  KelString(std::string(IniKeys()[static_cast<size_t>(info.key)].name) + "=") +
                      text + " is no limit; 1 is taken");
      value = 1;
    }
    limited |= value != 0;
  }
  if (limited || run.Limits() != nullptr) run.NeedLimits().Set(limits);
}

}  // namespace

void ContextState::TakeIniSwitches() {
  const Settings ini = Ini();
  run.settings.procedureTrace = ini.Integer(IniKey::ProcedureTrace);
  run.settings.verifiesCode = ini.IntegerOr(IniKey::VerifyCode, run.settings.verifiesCode) != 0;
  config.compileOnly = ini.Integer(IniKey::CompileOnly);
  config.dumpCode = ini.Integer(IniKey::DumpCode) != 0;
  config.dumpStatements = ini.Integer(IniKey::DumpStatements);
  run.settings.faultsRemainder = ini.Integer(IniKey::RemainderFault) != 0;
  if (!config.hostLimits && !nested) ReadLimits(ini, run);
  if (!config.hostLimitsTransfers) ReadTransferLimits(ini, config.transferLimits);
  run.settings.dumpsLocals = false;
  for (const char* section : {"TamberDebug", "TamberParseErrors", "TamberRunErrors"})
    run.settings.dumpsLocals |= !ini.Text(IniKey::DumpLocals, section).IsEmpty();
}

void ContextState::UseDefaultIni() {
  // Nobody has named it; where it is depends on the host's directory of the moment.
  config.iniPath = config.iniFile = KelString("./tamber.ini");
  Attempt([this] { TakeIniSwitches(); });
}

}  // namespace tamber

// Running out of memory here leaves the settings or sessions as they are; by design none of these
// calls sets the context error.

void TamberContext::SetIniPath(const KelString& path) {
  try {
    tamber::ContextState& state = State();
    state.config.iniPath = path;
    state.config.iniFile = KelString(kel::SettledHostPath(path.View()));
    state.TakeIniSwitches();
  } catch (const std::bad_alloc&) {
  }
}

void TamberContext::SetIniDir(const KelString& dir) {
  try {
    PathParser path(State().config.iniPath);
    path.SetDriveDir(dir);
    SetIniPath(path.GetPath());
  } catch (const std::bad_alloc&) {
  }
}

KelString TamberContext::GetIniPath() const { return state_->config.iniPath; }

uint32_t TamberContext::GetSessionId() const { return state_->session.id; }

void TamberContext::SetSessionId(uint32_t id) {
  state_->session.fault.Clear();
  state_->session.stored.clear();
  try {
    tamber::UntilStopped(State(), "the store was not reached before the stop",
                         [&] { tamber::SelectSession(State(), id); });
  } catch (const std::bad_alloc&) {
  }
}

KelString TamberContext::GetSessionFault() const { return state_->session.fault; }

bool TamberContext::DoesSessionExist(uint32_t id) {
  try {
    bool isStored = false;
    tamber::UntilStopped(State(), "looking was stopped",
                         [&] { isStored = tamber::IsSessionStored(State(), id); });
    return isStored;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void TamberContext::ExpireOldSessions(uint32_t maxAgeSeconds) {
  try {
    tamber::UntilStopped(State(), "expiring was stopped",
                         [&] { tamber::Expire(State(), maxAgeSeconds); });
  } catch (const std::bad_alloc&) {
  }
}

int32_t TamberContext::SaveSession() {
  try {
    if (!tamber::HasSession(State())) return 0;
    return tamber::SaveSessionVariables(State());
  } catch (const std::bad_alloc&) {
    state_->session.stored.clear();
    return 0;
  }
}

int32_t TamberContext::LoadSession() {
  try {
    if (!tamber::HasSession(State())) return 0;
    return tamber::LoadSessionVariables(State());
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

void TamberContext::KeepGlobals() {
  tamber::ContextState& state = State();
  state.scopes.keptGlobals.reset();
  try {
    if (state.scopes.globals != nullptr)
      state.scopes.keptGlobals = std::make_unique<VarList>(*state.scopes.globals);
  } catch (const std::bad_alloc&) {
    SetContextError(ERR_NOMEMORY, "");
  }
}

namespace {

/// Whether a variable certainly still has the value of its copy. Strings, arrays and structures are
/// shared until one of the two changes.
bool IsUntouched(Variable& variable, Variable& copy) {
  if (&tamber::LookThrough(variable) != &variable || &tamber::LookThrough(copy) != &copy)
    return false;
  const tamber::Kind kind = tamber::KindOf(variable);
  if (kind != tamber::KindOf(copy) || kind == tamber::Kind::None || tamber::HoldsObjects(kind))
    return false;
  const tamber::Cell now = *tamber::CellOf(variable);
  const tamber::Cell then = *tamber::CellOf(copy);
  const bool isHalf = tamber::IsNumeric(kind) && kind != tamber::Kind::Double;
  return isHalf ? static_cast<uint32_t>(now.bits) == static_cast<uint32_t>(then.bits)
                : now.bits == then.bits;
}

}  // namespace

int32_t TamberContext::RestoreGlobals() {
  tamber::ContextState& state = State();
  if (state.scopes.keptGlobals == nullptr || state.scopes.globals == nullptr) return 0;
  const VarList& globals = *state.scopes.globals;
  for (uint32_t i = 0; i < state.scopes.keptGlobals->GetSize(); ++i) {
    Variable* kept = state.scopes.keptGlobals->GetVariable(i);
    Variable* variable = globals.GetVariable(i);
    // Globals that were declared since lie behind those that are kept.
    if (variable == nullptr || !variable->OwnName().Equals(kept->OwnName()))
      variable = globals.GetVariable(globals.FindVariable(kept->OwnName()));
    if (variable != nullptr && !IsUntouched(*variable, *kept)) variable->Assign(kept);
  }
  return 1;
}
