#include <new>
#include <utility>

#include "context/contextstate.h"
#include "context/session.h"
#include "frontend/compile.h"
#include "frontend/compsession.h"
#include "frontend/script.h"
#include "frontend/scriptscan.h"
#include "kel/cipher.h"
#include "kel/file.h"
#include "kel/hostpath.h"
#include "kel/longstring.h"
#include "kel/pathparser.h"
#include "kel/stop.h"
#include "machine/runlimits.h"
#include "values/errcodes.h"
#include "values/leftbehind.h"
#include "values/shared.h"

using tamber::ContextState;
using tamber::ScriptText;

namespace {

/// A failure that is about the whole file: there is no line to show.
int32_t FailFile(TamberContext& context, int32_t code, const KelString& name,
                 std::string_view reason = {}) {
  context.SetContextError(code, name + reason);
  auto text = ScriptText::FromBuffer(name, std::string());
  context.State().HandleParseError({text, 0});
  return 0;
}

int32_t FailForMemory(TamberContext& context, const KelString& name) {
  try {
    return FailFile(context, ERR_NOMEMORY, name);
  } catch (const std::bad_alloc&) {
    return 0;  // not enough for the report either; the code stands
  }
}

void NoteStop(ContextState& state, const tamber::SourcePlace& place) {
  const kel::Interruptible noting(false);
  state.run.stopFlag = true;
  state.run.isInterrupted = true;
  // Once for each call of the host: what it began has forgotten the record of the one before.
  KelString detail;
  if (state.errors.diagnostic.Code() != state.run.StopCode(detail)) state.NoteStop(place);
}

/// Whether the host has stopped what was compiled, or code that ran for it; the stop is noted.
bool IsStopped(ContextState& state, const tamber::CompilePlace& place) {
  const bool stopped = state.run.isInterrupted || state.run.errorCode == ERR_STOPPED;
  if (stopped) NoteStop(state, {place.text, place.line, place.offset, place.procedure});
  return stopped;
}

/// The text was still being read.
int32_t EndUnread(ContextState& state, const KelString& name) {
  NoteStop(state, {ScriptText::FromBuffer(name, std::string()), 0});
  return state.EndStopped();
}

int32_t FailAt(ContextState& state, const tamber::CompilePlace& place) {
  state.HandleParseError({place.text, place.line, place.offset, place.procedure});
  return 0;
}

int32_t CodeOf(ScriptText::Status status) {
  return status == ScriptText::Status::Missing ? ERR_FILENOTFOUND : ERR_FILENOTVALID;
}

int32_t IsStructured(TamberContext& context, const KelString& name,
                     const std::shared_ptr<const ScriptText>& text, ScriptText::Status status) {
  if (!text) return FailFile(context, CodeOf(status), name, ScriptText::Reason(status));
  ScriptLine script(text);
  const tamber::ScriptShape shape = tamber::ShapeOf(context.State(), script);
  if (shape == tamber::ScriptShape::Unreadable) {
    context.SetContextError(script.GetTokeniser().GetLastError(), "");
    context.State().HandleParseError({text, script.GetStatementLine()});
  }
  return shape == tamber::ScriptShape::Structured ? 1 : 0;
}

}  // namespace

int32_t ContextState::CompileFile(const KelString& path, const kel::Place& place) {
  if (!nested && !machine->IsRunning()) tamber::SharedCredits::GiveBackAfterMaking();
  const LimitScope limits(run);
  const kel::StopWord stops(run.rootWake);
  const LeavingBehind leaving(run.rootLeft);
  const kel::Interruptible interruptible(true);
  try {
    context.SetContextError(0, KelString());
    const SessionReading reading(*this);
    ForgetDiagnostic();
    if (context.FindScript(path) != nullptr) return 1;
    context.SetScriptFile(path, 0);
    ScriptText::Status status = ScriptText::Status::Ok;
    auto text = ScriptText::FromFile(path, place, config.scriptKey, status);
    if (!text) return FailFile(context, ::CodeOf(status), path, ScriptText::Reason(status));
    auto script = std::make_unique<TamberScript>(&context, text);
    CompilePlace failed;
    const bool compiled = tamber::CompileScript(*this, *script, failed);
    if (IsStopped(*this, failed)) return EndStopped();
    if (!compiled) return FailAt(*this, failed);
    context.AddScript(std::move(script));
    DumpScriptStatements();
    return 1;
  } catch (const kel::Interrupted&) {
    return EndUnread(*this, path);
  } catch (const std::bad_alloc&) {
    return FailForMemory(context, path);
  }
}

int32_t TamberContext::CompileScriptFile(const KelString& path) {
  try {
    if (FindScript(path.View()) != nullptr) {
      SetContextError(0, KelString());
      return 1;
    }
    const KelString full(kel::CompletePath(kel::HostPath(path.View())));
    return state_->CompileFile(full, kel::Place(full));
  } catch (const std::bad_alloc&) {
    return FailForMemory(*this, path);
  }
}

int32_t TamberContext::CompileScriptBuffer(const KelString& name, const KelString& text,
                                           uint32_t firstLine) {
  if (!state_->nested && !state_->machine->IsRunning())
    tamber::SharedCredits::GiveBackAfterMaking();
  const tamber::LimitScope limits(state_->run);
  const kel::StopWord stops(state_->run.rootWake);
  const tamber::LeavingBehind leaving(state_->run.rootLeft);
  const kel::Interruptible interruptible(true);
  try {
    SetContextError(0, KelString());
    const tamber::SessionReading reading(*state_);
    state_->ForgetDiagnostic();
    // Text that is too much is not copied first.
    const std::string_view taken = text.View().substr(0, ScriptText::kMaxBytes * 2 + 4);
    auto source = ScriptText::FromBuffer(name, kel::CopyOf(taken), firstLine == 0 ? 1 : firstLine);
    if (!source) {
      return FailFile(*this, ERR_FILENOTVALID, name,
                      ScriptText::Reason(ScriptText::Status::NoText));
    }
    auto script = std::make_unique<TamberScript>(this, source);
    tamber::CompilePlace place;
    // A run-time error that an initialiser left behind does not fail a text, only a file.
    bool compiled = tamber::CompileScript(*state_, *script, place, tamber::LeftError::Reported);
    if (IsStopped(*state_, place)) return state_->EndStopped();
    if (state_->run.errorCode >= tamber::kFirstFatalError) return FailAt(*state_, place);
    // Nothing may stay unsaid: an include that the host's policy refuses leaves a smaller code.
    if (!compiled) FailAt(*state_, place);
    AddScript(std::move(script));
    state_->DumpScriptStatements();
    return compiled;
  } catch (const kel::Interrupted&) {
    return EndUnread(*state_, name);
  } catch (const std::bad_alloc&) {
    return FailForMemory(*this, name);
  }
}

int32_t TamberContext::ScriptFileIsStructured(const KelString& path) {
  try {
    SetContextError(0, KelString());
    const KelString full(kel::CompletePath(kel::HostPath(path.View())));
    ScriptText::Status status = ScriptText::Status::Ok;
    const auto text = ScriptText::FromFile(full, state_->config.scriptKey, status);
    return IsStructured(*this, full, text, status);
  } catch (const std::bad_alloc&) {
    return FailForMemory(*this, path);
  }
}

int32_t TamberContext::ScriptBufferIsStructured(const KelString& name, const KelString& text) {
  try {
    SetContextError(0, KelString());
    const auto source = ScriptText::FromBuffer(name, text.Str());
    return IsStructured(*this, name, source, ScriptText::Status::NoText);
  } catch (const std::bad_alloc&) {
    return FailForMemory(*this, name);
  }
}

int32_t TamberContext::CompactScriptBuffer(const KelString& file, KelString& out) {
  try {
    ScriptText::Status status = ScriptText::Status::Ok;
    auto text = ScriptText::FromFile(KelString(kel::CompletePath(file.View())),
                                     state_->config.scriptKey.View(), status);
    if (!text) {
      SetContextError(ERR_FILENOTVALID, file);
      return 0;
    }
    ScriptLine script(text);
    int32_t error = tamber::CompactScript(script, out);
    if (error == 0) return 1;
    SetContextError(error, error == ERR_SCRNOMORELINES ? tamber::kOpenComment : "");
    state_->HandleParseError({text, script.GetStatementLine()});
    return 0;
  } catch (const std::bad_alloc&) {
    SetContextError(ERR_NOMEMORY, file);
    return 0;
  }
}

int32_t TamberContext::EncryptScript(const KelString& source, const KelString& target,
                                     const KelString& key) {
  try {
    std::string text;
    kel::ReadStatus status =
        kel::ReadRegularFile(kel::HostPath(source.View()), text, ScriptText::kMaxBytes);
    if (status != kel::ReadStatus::Ok) {
      SetContextError(status == kel::ReadStatus::Missing ? ERR_FILENOTFOUND : ERR_FILENOTVALID,
                      source);
      return 0;
    }
    std::string sealed = kel::SealText(text, key.View());
    if (sealed.empty() || !kel::WriteFileAtomically(kel::HostPath(target.View()), sealed)) {
      SetContextError(ERR_FILECREATEFAIL, target);
      return 0;
    }
    return 1;
  } catch (const std::bad_alloc&) {
    SetContextError(ERR_NOMEMORY, source);
    return 0;
  }
}
