#include <algorithm>

#include "context/contextstate.h"
#include "frontend/scripttext.h"
#include "frontend/scrline.h"
#include "kel/dumpselection.h"
#include "kel/file.h"
#include "kel/filestat.h"
#include "kel/hostpath.h"
#include "kel/longstring.h"
#include "kel/notice.h"
#include "kel/rotate.h"
#include "kel/stop.h"
#include "machine/disassemble.h"
#include "machine/machine.h"
#include "machine/runlimits.h"
#include "statements/lower.h"
#include "statements/procedure.h"
#include "values/settings.h"

namespace tamber {
namespace {

KelString OutputTypeOf(const ContextState& state, const KelString& section) {
  const Settings ini = state.Ini();
  const bool isWanted = state.config.defaultReports || section == "TamberDebug" ||
                        !ini.TextOr(IniKey::OutputName, "", section).IsEmpty();
  if (isWanted) return ini.Text(IniKey::OutputType, section).ToLower();
  return ini.TextOr(IniKey::OutputType, "none", section).ToLower();
}

/// The file that a section's reports go to, "stdout" for standard output, "" for nowhere.
KelString OutputFileOf(const ContextState& state, const KelString& section) {
  const Settings ini = state.Ini();
  const KelString type = OutputTypeOf(state, section);
  if (type == "file") return ini.Text(IniKey::OutputName, section);
  if (type == "stdout") return type;
  if (type != "var") return {};
  const KelString name = ini.TextOr(IniKey::OutputName, "LogFile", section);
  const Variable* variable = state.context.GetVariable(name, VARLIST_GLOBAL);
  return variable != nullptr ? KelString(variable->GetStringValue()) : KelString();
}

constexpr int32_t kMaxOldReports = 1000;
constexpr const char* kOpenFailed = "Internal Error: Failed to open output file";

/// Where a report goes. What the host has not chosen itself must pass its policy: a script sets the
/// variable that a file is named by, and may be able to write the INI file.
kel::Place PlaceOfReport(const ContextState& state, const KelString& section,
                         const KelString& file) {
  const kel::FilePolicy& policy = state.config.filePolicy;
  const bool isVariable = OutputTypeOf(state, section) == "var";
  if (isVariable && file != state.config.ownLogFile) return policy.Find(file, kel::Access::Write);
  const std::string path = kel::HostPath(file);
  return isVariable || state.TrustsIni() ? policy.FindForHost(path, kel::Access::Write)
                                         : policy.Find(path, kel::Access::Write);
}

void BoundReports(const ContextState& state, const KelString& section, const kel::Place& place,
                  uint64_t more) {
  const Settings ini = state.Ini();
  const int32_t limit = ini.Integer(IniKey::OutputSize, section);
  const int32_t kept = std::clamp(ini.Integer(IniKey::OutputKeep, section), 0, kMaxOldReports);
  if (limit > 0) {
    kel::RotateFile(place, static_cast<uint64_t>(limit), static_cast<uint32_t>(kept), more);
  }
}

/// Every report is one write to a file that is opened for it, so that several processes can share a
/// file and none loses a line when it is moved away. Null, or why it was not written.
const char* WriteReport(const kel::Place& place, std::string_view text) {
  if (place.IsRefused()) return "Refused by the host's file policy";
  if (place.IsConfined()) {
    return kel::AppendToFile(place, text) == kel::FileStatus::Ok ? nullptr : kOpenFailed;
  }
  const int descriptor = kel::OpenForAppend(place.Path());
  if (descriptor < 0) return kOpenFailed;
  const bool written = kel::AppendAll(descriptor, text);
  kel::CloseFile(descriptor);
  return written ? nullptr : "Internal Error: Failed to write output file";
}

/// What the INI file asks for in one section.
class DumpWriter {
 public:
  DumpWriter(ContextState& state, const KelString& section)
      : state_(state), ini_(state.Ini()), section_(section) {}

  void WriteAll(const SourcePlace& place, KelString& out) const {
    if (place.text != nullptr && place.line != 0) {
      const int32_t lines = ini_.Integer(IniKey::DumpSource, section_);
      place.text->DumpSource(out, place.line, std::max(lines, 0));
    }
    TamberContext& context = state_.context;
    const KelString types = Key(IniKey::DumpTypes);
    if (!types.IsEmpty()) context.DumpTypes(out, types, "");
    WriteList(out, state_.scopes.globals.get(),
              "Global variable list dump:", Key(IniKey::DumpGlobals));
    WriteLocals(out);
    const KelString constants = Key(IniKey::DumpConstants);
    if (!constants.IsEmpty()) {
      WriteList(out, state_.Constants(), "Constants list dump:", constants);
    }
    const KelString functions = Key(IniKey::DumpFunctions);
    if (!functions.IsEmpty()) context.DumpFunctions(out, functions, "");
    const KelString procedures = Key(IniKey::DumpProcedures);
    if (!procedures.IsEmpty()) context.DumpProcedures(out, procedures);
  }

 private:
  KelString Key(IniKey key) const { return ini_.Text(key, section_); }

  /// Locals have objects only for this; nobody pays for a dump that was not asked for.
  void WriteLocals(KelString& out) const {
    const KelString names = Key(IniKey::DumpLocals);
    if (names.IsEmpty() || !state_.machine->HasLocals()) return;
    const VarList locals = state_.machine->SnapshotLocals();
    WriteList(out, &locals, "Local variable list dump:", names);
  }

  void WriteList(KelString& out, const VarList* list, std::string_view title,
                 const KelString& names) const {
    if (names.IsEmpty() || list == nullptr) return;
    const kel::DumpSelection selection(names);
    selection.AppendTitle(out, title);
    if (selection.All()) {
      for (uint32_t i = 0; i < list->GetSize(); ++i) list->GetVariable(i)->Dump(out, "");
      return;
    }
    for (const std::string_view name : selection.Names()) {
      const Variable* variable = list->GetVariable(name);
      if (variable != nullptr) variable->Dump(out, "");
    }
  }

  ContextState& state_;
  Settings ini_;
  KelString section_;
};

}  // namespace

bool ContextState::IsOutputEnabled(const KelString& section) const {
  if (output.reportSink != nullptr) return true;
  const KelString type = OutputTypeOf(*this, section);
  return !type.IsEmpty() && type != "none";
}

void ContextState::ProcessOutputBuffer(KelString& text, const KelString& section) {
  RunLimits* const limits = run.Limits();
  if (limits != nullptr && !limits->Take(Limit::reports, text.GetLength())) {
    limits->Exceed(Limit::reports);
    text.Clear();
    return;
  }
  bool taken = false;
  if (output.reportSink != nullptr && !text.IsEmpty())
    CallHost([&] { taken = output.reportSink(section, text.View(), output.reportUser); });
  const KelString file = taken ? KelString() : OutputFileOf(*this, section);
  if (file == "stdout") {
    kel::WriteStandardOutput(text);
  } else if (!file.IsEmpty() && !text.IsEmpty()) {
    const kel::Place place = PlaceOfReport(*this, section, file);
    BoundReports(*this, section, place, text.GetLength());
    const char* const fault = WriteReport(place, text);
    // A script may go on after its report: one notice is enough.
    if (fault != nullptr && output.unwritable != file) kel::Notice(file, fault);
    output.unwritable = fault != nullptr ? file : KelString();
  }
  text.Clear();
}

void ContextState::AppendDumps(KelString& text, const KelString& section,
                               const SourcePlace& place) {
  // A type of output that does not exist is enabled and goes nowhere: nothing needs to be made up.
  if (!IsOutputEnabled(section)) return;
  if (output.reportSink == nullptr && OutputFileOf(*this, section).IsEmpty()) return;
  // The report of a stop is whole; another one says that it is not.
  const kel::Interruptible interruptible(!run.isInterrupted);
  try {
    DumpWriter(*this, section).WriteAll(place, text);
  } catch (const kel::Interrupted&) {
    text += "\r\nDump stopped.\r\n";
  }
}

void ContextState::DumpScriptStatements() {
  const KelString section("TamberDebug");
  const bool shown = config.dumpStatements != 0 || config.dumpCode;
  if (!shown || !IsOutputEnabled(section)) return;
  KelString text;
  for (uint32_t i = 1; i <= context.GetProcedureCount(); ++i) {
    TamberProcedure* procedure = context.GetProcedure(i);
    if (config.dumpStatements != 0)
      tamber::StatementsOf(*procedure)->Dump(text, procedure->GetName());
    if (!config.dumpCode) continue;
    const Lowered lowered = procedure->FrozenNumber() != 0 ? LowerShared(*procedure, false)
                                                           : LowerProcedure(*procedure, false);
    if (lowered.code) Disassemble(*lowered.code, text.Str());
  }
  ProcessOutputBuffer(text, section);
}

}  // namespace tamber

void TamberContext::ProcessOutputBuffer(KelString& text, const KelString& section) {
  State().ProcessOutputBuffer(text, section);
}

void TamberContext::PerformDumps(const KelString& section, ScriptLine* line) {
  tamber::SourcePlace place;
  if (line != nullptr) place = {line->GetText(), line->GetStatementLine()};
  KelString text;
  State().AppendDumps(text, section, place);
  State().ProcessOutputBuffer(text, section);
}

void TamberContext::SetOutput(KelString* buffer) {
  State().output.console = buffer;
  State().output.consoleIsHosts = buffer != nullptr;
}

void TamberContext::SetOutputSink(void (*sink)(std::string_view, void*), void* user) {
  State().output.sink = sink;
  State().output.sinkUser = user;
}

void TamberContext::SetReportSink(bool (*sink)(const KelString&, std::string_view, void*),
                                  void* user) {
  State().output.reportSink = sink;
  State().output.reportUser = user;
}

void TamberContext::SetDefaultReports(bool enabled) { State().config.defaultReports = enabled; }

void TamberContext::SetCodeVerification(bool verify) { State().run.settings.verifiesCode = verify; }

void TamberContext::SetProcedureTrace(bool trace) {
  State().run.settings.procedureTrace = trace ? 1 : 0;
}
void TamberContext::SetStatementDump(bool dump) { State().config.dumpStatements = dump ? 1 : 0; }
void TamberContext::SetCodeDump(bool dump) { State().config.dumpCode = dump; }

void TamberContext::AppendOutput(std::string_view text) {
  if (text.empty()) return;
  tamber::RunLimits* const limits = State().run.Limits();
  if (limits != nullptr && !limits->Take(tamber::Limit::output, text.size())) {
    SetContextError(ERR_OUTPUTLIMIT, KelString(limits->Describe(tamber::Limit::output)));
    return;
  }
  if (State().output.sink != nullptr) {
    const kel::Interruptible interruptible(false);
    State().output.sink(text, State().output.sinkUser);
    return;
  }
  KelString* console = State().output.console;
  if (console == nullptr) {
    kel::WriteStandardOutput(text);
    return;
  }
  try {
    kel::Append(console->Str(), text);
  } catch (const std::bad_alloc&) {
    SetContextError(ERR_NOMEMORY, "");
  }
}

/// What goes to standard output goes there at once, in one write for each text, and what goes to a
/// host's buffer stays there: only a sink may have collected something.
void TamberContext::FlushOutput() {
  if (State().output.sink == nullptr) return;
  const kel::Interruptible interruptible(false);
  State().output.sink({}, State().output.sinkUser);
}
