#include <algorithm>
#include <optional>
#include <utility>

#include "context/contextstate.h"
#include "frontend/scripttext.h"
#include "kel/fault.h"
#include "kel/kelascii.h"
#include "kel/threadspare.h"
#include "values/account.h"
#include "values/errcodes.h"
#include "values/errhints.h"
#include "values/settings.h"
#include "values/varstring.h"

namespace tamber {
namespace {

const KelString kParseErrors("TamberParseErrors");
const KelString kRunErrors("TamberRunErrors");

KelString FileOf(const SourcePlace& place) {
  return place.text != nullptr ? place.text->Name() : KelString();
}

void SetGlobalInteger(ContextState& state, std::string_view name, int32_t value) {
  Variable* variable =
      state.scopes.globals != nullptr ? state.scopes.globals->GetVariable(name) : nullptr;
  if (variable != nullptr) variable->SetIntegerValue(value);
}

void PrintErrorHeader(ContextState& state, KelString& out, const KelString& kind,
                      const SourcePlace& place) {
  int32_t code = state.run.errorCode;
  KelString name = state.errors.list.GetErrorName(code);
  if (!name.IsEmpty())
    out.AppendPrintf("%S error %S in file%s", kind, name, "\r\n");
  else
    out.AppendPrintf("%S error %u in file%s", kind, static_cast<uint32_t>(code), "\r\n");
  out.AppendPrintf("%S, line %u%s", FileOf(place), place.line, "\r\n");
  out += state.errors.list.GetErrorText(code);
  if (!state.run.errorText.IsEmpty()) {
    out += ": ";
    out += state.run.errorText;
  }
  out += "\r\n";
}

/// A report is one text, so that others do not write between its parts.
void WriteReport(ContextState& state, const KelString& section, const KelString& kind,
                 const SourcePlace& place) {
  if (!state.IsOutputEnabled(section)) return;
  const Settings ini = state.Ini();
  KelString text = ini.Text(IniKey::OutputPrefix, section);
  text += "\r\n";
  PrintErrorHeader(state, text, kind, place);
  // Without memory for all of it, the report ends with its header.
  KelString whole;
  const bool isWhole = Attempt([&] {
    whole = text;
    state.AppendDumps(whole, section, place);
    whole += ini.Text(IniKey::OutputSuffix, section);
    whole += "\r\n";
  });
  state.ProcessOutputBuffer(isWhole ? whole : text, section);
}

/// Two errors have no text of their own in scripts and reports; a host is told what they mean.
KelString TextOf(const ContextState& state, int32_t code) {
  KelString text = state.errors.list.GetErrorText(code);
  if (text.IsEmpty() && code == kErrStructBlock) text = "Structure definition is not complete";
  if (text.IsEmpty() && code == kErrStructMember) text = "Invalid structure member";
  return text;
}

/// The record of the error that is about to be reported.
void NoteDiagnostic(ContextState& state, const SourcePlace& place) {
  TamberDiagnostic& diagnostic = state.errors.diagnostic.Record();
  diagnostic = TamberDiagnostic();
  diagnostic.code = state.run.errorCode;
  diagnostic.name = state.errors.list.GetErrorName(state.run.errorCode);
  diagnostic.text = TextOf(state, state.run.errorCode);
  diagnostic.detail = state.run.errorDetail;
  diagnostic.file = FileOf(place);
  diagnostic.line = place.line;
  if (place.text != nullptr) {
    const ScriptText::Place at = place.text->Locate(place.line, place.offset);
    // Whoever has stopped something is not kept waiting for a copy of a line of megabytes.
    constexpr size_t kMostOfStopped = size_t{1} << 20;
    const bool isStopped = diagnostic.code == ERR_STOPPED;
    diagnostic.sourceLine = KelString(
        place.text->Line(at.line).substr(0, isStopped ? kMostOfStopped : KelString::kNotFound));
    diagnostic.sourceLineNumber = at.line;
    diagnostic.column = at.column;
  }
  diagnostic.notes = state.run.notes.Texts();
  diagnostic.procedure = place.procedure;
  if (!place.procedure.IsEmpty()) return;
  for (const ContextState* at = &state; at != nullptr; at = at->caller) {
    for (const SourcePlace& call : at->machine->CallStack())
      diagnostic.callStack.push_back({call.procedure, FileOf(call), call.line});
  }
  if (!diagnostic.callStack.empty()) diagnostic.procedure = diagnostic.callStack.front().procedure;
}

void TellHost(ContextState& state, const SourcePlace& place) {
  NoteDiagnostic(state, place);
  if (state.errors.diagnosticHandler == nullptr) return;
  const TamberDiagnostic told = state.errors.diagnostic.Record();
  state.CallHost([&] { state.errors.diagnosticHandler(told, state.errors.diagnosticUser); });
}

}  // namespace

ErrorRecord::ErrorRecord(ContextState& state)
    : state_(state),
      code_(state.run.errorCode),
      reported_(state.run.errorReported),
      text_(state.run.errorText),
      detail_(state.run.errorDetail),
      notes_(state.run.notes),
      diagnostic_(state.errors.diagnostic.Record()) {}

ErrorRecord::~ErrorRecord() {
  state_.run.errorCode = code_;
  state_.run.errorReported = reported_;
  state_.run.errorText = std::move(text_);
  state_.run.errorDetail = std::move(detail_);
  state_.run.notes = std::move(notes_);
  state_.errors.diagnostic.Record() = std::move(diagnostic_);
}

void ContextState::PrepareReports() {
  // One block of the heap, which small blocks then come from, where a larger one would be a mapping
  // of its own that goes back to the system.
  constexpr size_t kRoom = 48 * 1024;
  errors.owedReport.reset();
  if (!ReportRoom::IsThere())
    ReportRoom::Keep(std::unique_ptr<char[]>(new (std::nothrow) char[kRoom]));
}

void ContextState::HandleParseError(const SourcePlace& place) {
  // The innermost procedure or script reports; those around it only end.
  if (run.errorReported || run.errorCode == 0) return;
  run.errorReported = true;
  // The host may use the context while it is told, and have other errors reported meanwhile.
  std::optional<ErrorReporting::OwedReport> report = std::exchange(errors.owedReport, std::nullopt);
  if (run.errorCode == ERR_NOMEMORY) ReportRoom::Free();
  const UnlimitedMemory forReport;
  const bool reported = Attempt([&] {
    if (!report) report.emplace(ErrorReporting::OwedReport{place});
    if (!report->hostKnows) {
      const std::string_view hint = UsualHint(run.errorCode, run.errorDetail.View());
      if (!hint.empty() && run.wantsNotes && !run.notes.HasHint())
        run.notes.Hint(std::string(hint));
      SetGlobalInteger(*this, "ErrLine", static_cast<int32_t>(report->place.line));
      context.UpdateErrCodeVar();
      TellHost(*this, report->place);
      report->hostKnows = true;
    }
    WriteReport(*this, kParseErrors, KelString("Fatal parse or run time"), report->place);
  });
  if (reported) return;
  errors.owedReport = std::move(report);
  ReportRoom::Free();
  run.errorReported = false;
}

KelString ContextState::ErrorHandler() {
  Variable* variable = context.GetVariable(KelString("ErrHandler"), VARLIST_LOCAL | VARLIST_GLOBAL);
  if (variable == nullptr) return KelString();
  // No procedure has a longer name, and nothing here looks for a stop.
  constexpr uint32_t kLongest = 1 << 20;
  return KelString(variable->GetStringValue(), std::min(variable->GetLength(), kLongest));
}

void ContextState::ReportRunError(const SourcePlace& place) {
  const UnlimitedMemory forReport;
  TellHost(*this, place);
  WriteReport(*this, kRunErrors, KelString("Run time"), place);
  run.errorCode = 0;
}

void ContextState::NoteStop(const SourcePlace& place) {
  KelString detail;
  const int32_t code = run.StopCode(detail);
  run.errorText.Clear();
  run.SetError(code, detail);
  if (code != ERR_STOPPED) {
    HandleParseError(place);
  } else {
    TellHost(*this, place);
    const bool reported = Ini().Integer(IniKey::ReportStops) != 0;
    if (reported) WriteReport(*this, kRunErrors, KelString("Run time"), place);
  }
  run.errorCode = ERR_SUCCESS;
}

void ContextState::RefuseRegistration(int32_t code, const KelString& text) {
  context.SetContextError(code, text);
  Attempt([this] { NoteDiagnostic(*this, SourcePlace()); });
}

int32_t ContextState::LastReported(KelString& detail) {
  detail = errors.diagnostic.Record().detail;
  return errors.diagnostic.Code();
}

/// A handler of the signal finds the place in the diagnostic; nobody is told otherwise, as it may
/// go on.
void ContextState::RaiseFault(const SourcePlace& place) {
  std::optional<ErrorRecord> own, outermost;
  Attempt([&] {
    own.emplace(*this);
    outermost.emplace(root->State());
    run.SetError(ERR_DIVIDEBYZERO, "% by zero");
    NoteDiagnostic(*this, place);
    if (nested) root->State().errors.diagnostic.Record() = errors.diagnostic.Record();
  });
  kel::RaiseArithmeticFault();
}

bool ContextState::PassInline(const SourcePlace& place) {
  if (!kel::EqualsNoCase(ErrorHandler(), "INLINE_HANDLER")) return false;
  HandleRunError(place);
  return true;
}

void ContextState::ReportLeft(const SourcePlace& place) {
  HandleRunError(place);
  // Handlers that are procedures serve code that runs.
  if (run.errorCode != ERR_SUCCESS) ReportRunError(place);
}

KelString ContextState::HandleRunError(const SourcePlace& place) {
  SetGlobalInteger(*this, "ErrLine", static_cast<int32_t>(place.line));
  context.UpdateErrCodeVar();
  KelString handler = ErrorHandler();
  if (kel::EqualsNoCase(handler.View(), "INLINE_HANDLER")) {
    run.errorCode = 0;
  } else if (kel::EqualsNoCase(handler.View(), "DEFAULT_HANDLER")) {
    ReportRunError(place);
  }
  return handler;
}

}  // namespace tamber

void TamberContext::SetContextError(int32_t code, const KelString& text) {
  state_->run.SetError(code, text);
}

int32_t TamberContext::GetContextError() const { return state_->run.errorCode; }
const TamberDiagnostic& TamberContext::GetDiagnostic() const {
  return state_->errors.diagnostic.Record();
}
KelString TamberContext::GetContextErrorText() const { return state_->run.errorText; }

void TamberContext::UpdateErrCodeVar() {
  tamber::SetGlobalInteger(State(), "ErrCode", state_->run.errorCode);
}

KelString TamberContext::GetErrorName(int32_t code) {
  return state_->errors.list.GetErrorName(code);
}
KelString TamberContext::GetErrorText(int32_t code) {
  return state_->errors.list.GetErrorText(code);
}
ErrorList& TamberContext::GetErrorList() { return state_->errors.list; }
