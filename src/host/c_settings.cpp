// What hosts in C decide about a context, and what they hear of it.

#include "host/c_context.h"

namespace tamber::host {
namespace {

/// Changes the context's policy.
template <class Change>
int WithPolicy(tamber_context* handle, Change&& change) {
  return WithContext(handle, [&](CContext& own) -> int {
    kel::FilePolicy policy = own.context.GetFilePolicy();
    const int status = change(policy);
    if (status == TAMBER_OK) own.context.SetFilePolicy(policy);
    return status;
  });
}

bool IsAccess(int access) { return access >= TAMBER_NO_ACCESS && access <= TAMBER_WRITE; }

/// An operation of a context that says 1 or 0.
int Said(int32_t done) { return done != 0 ? TAMBER_OK : TAMBER_FAILED; }

void PassOutput(std::string_view text, void* user) {
  const auto& to = *static_cast<const CListeners*>(user);
  to.output(text.data(), text.size(), to.outputUser);
}

bool PassReport(const KelString& section, std::string_view text, void* user) {
  const auto& to = *static_cast<const CListeners*>(user);
  return to.report(section.GetString(), text.data(), text.size(), to.reportUser) != 0;
}

}  // namespace

void CContext::Listen() {
  context.SetOutputSink(listeners.output != nullptr ? PassOutput : nullptr, &listeners);
  context.SetReportSink(listeners.report != nullptr ? PassReport : nullptr, &listeners);
}

}  // namespace tamber::host

using namespace tamber::host;

int tamber_set_ini(tamber_context* context, const char* path) {
  return WithContext(context, [&](CContext& own) -> int {
    if (path == nullptr) return TAMBER_BAD_ARGUMENT;
    own.context.SetIniPath(KelString(path));
    return TAMBER_OK;
  });
}

int tamber_set_output(tamber_context* context, tamber_output output, void* user) {
  return WithContext(context, [&](CContext& own) -> int {
    own.listeners.output = output;
    own.listeners.outputUser = user;
    own.Listen();
    return TAMBER_OK;
  });
}

int tamber_set_report(tamber_context* context, tamber_report report, void* user) {
  return WithContext(context, [&](CContext& own) -> int {
    own.listeners.report = report;
    own.listeners.reportUser = user;
    own.Listen();
    return TAMBER_OK;
  });
}

int tamber_allow_files(tamber_context* context, int access) {
  return WithPolicy(context, [&](kel::FilePolicy& policy) -> int {
    if (!IsAccess(access)) return TAMBER_BAD_ARGUMENT;
    policy.SetAccess(static_cast<kel::Access>(access));
    return TAMBER_OK;
  });
}

int tamber_allow_directory(tamber_context* context, const char* path, int access) {
  return WithPolicy(context, [&](kel::FilePolicy& policy) -> int {
    if (path == nullptr || !IsAccess(access)) return TAMBER_BAD_ARGUMENT;
    return policy.AddDirectory(path, static_cast<kel::Access>(access)) ? TAMBER_OK
                                                                       : TAMBER_NOT_FOUND;
  });
}

int tamber_allow_network(tamber_context* context, int allowed) {
  return WithPolicy(context, [&](kel::FilePolicy& policy) -> int {
    policy.SetNetwork(allowed != 0);
    return TAMBER_OK;
  });
}

int tamber_limit_transfers(tamber_context* context, uint32_t seconds, uint64_t bytes) {
  return WithContext(context, [&](CContext& own) -> int {
    own.context.SetTransferLimits(seconds, bytes);
    return TAMBER_OK;
  });
}

int tamber_show_process(tamber_context* context, int what) {
  return WithPolicy(context, [&](kel::FilePolicy& policy) -> int {
    constexpr int kAll = TAMBER_ENVIRONMENT | TAMBER_DIRECTORY_NAME | TAMBER_PROCESSES;
    if ((what & ~kAll) != 0) return TAMBER_BAD_ARGUMENT;
    policy.SetEnvironment((what & TAMBER_ENVIRONMENT) != 0);
    policy.SetDirectoryName((what & TAMBER_DIRECTORY_NAME) != 0);
    policy.SetProcesses((what & TAMBER_PROCESSES) != 0);
    return TAMBER_OK;
  });
}

int tamber_stop(tamber_context* context) {
  return WithContext<FindContext>(context, [](CContext& own) -> int {
    own.context.RequestStop();
    return TAMBER_OK;
  });
}

int tamber_is_stopped(tamber_context* context, int* stopped) {
  return WithContext<FindContext>(context, [&](const CContext& own) -> int {
    if (stopped == nullptr) return TAMBER_BAD_ARGUMENT;
    *stopped = own.context.IsStopRequested() ? 1 : 0;
    return TAMBER_OK;
  });
}

int tamber_cancel_stop(tamber_context* context) {
  return WithContext(context, [](CContext& own) -> int {
    own.context.CancelStop();
    return TAMBER_OK;
  });
}

int tamber_reset(tamber_context* context) {
  return WithContext(context, [](CContext& own) -> int {
    own.result.reset();
    own.context.ResetContext();
    return Said(own.context.GetContextError() == ERR_SUCCESS);
  });
}

int tamber_set_session(tamber_context* context, uint32_t session) {
  return WithContext(context, [&](CContext& own) -> int {
    own.context.SetSessionId(session);
    return TAMBER_OK;
  });
}

int tamber_session_exists(tamber_context* context, uint32_t session, int* exists) {
  return WithContext(context, [&](CContext& own) -> int {
    if (exists == nullptr) return TAMBER_BAD_ARGUMENT;
    *exists = own.context.DoesSessionExist(session) ? 1 : 0;
    return TAMBER_OK;
  });
}

int tamber_expire_sessions(tamber_context* context, uint32_t max_age_seconds) {
  return WithContext(context, [&](CContext& own) -> int {
    own.context.ExpireOldSessions(max_age_seconds);
    return TAMBER_OK;
  });
}

int tamber_load_session(tamber_context* context) {
  return WithContext(context, [](CContext& own) { return Said(own.context.LoadSession()); });
}

int tamber_save_session(tamber_context* context) {
  return WithContext(context, [](CContext& own) { return Said(own.context.SaveSession()); });
}

int tamber_keep_globals(tamber_context* context) {
  return WithContext(context, [](CContext& own) -> int {
    own.context.KeepGlobals();
    return TAMBER_OK;
  });
}

int tamber_restore_globals(tamber_context* context) {
  return WithContext(context, [](CContext& own) { return Said(own.context.RestoreGlobals()); });
}

int tamber_get_error(tamber_context* context, tamber_error* error) {
  return WithContext(context, [&](CContext& own) -> int {
    if (error == nullptr) return TAMBER_BAD_ARGUMENT;
    const TamberDiagnostic& last = own.context.GetDiagnostic();
    *error = {last.code,
              last.line,
              last.column,
              last.name.GetString(),
              last.text.GetString(),
              last.detail.GetString(),
              last.file.GetString(),
              last.sourceLine.GetString(),
              last.procedure.GetString(),
              last.sourceLineNumber,
              static_cast<uint32_t>(last.callStack.size()),
              static_cast<uint32_t>(last.notes.size())};
    return TAMBER_OK;
  });
}

int tamber_get_frame(tamber_context* context, uint32_t position, tamber_frame* frame) {
  return WithContext(context, [&](CContext& own) -> int {
    if (frame == nullptr) return TAMBER_BAD_ARGUMENT;
    const auto& frames = own.context.GetDiagnostic().callStack;
    if (position >= frames.size()) return TAMBER_NOT_FOUND;
    const TamberCallFrame& call = frames[position];
    *frame = {call.procedure.GetString(), call.file.GetString(), call.line};
    return TAMBER_OK;
  });
}

int tamber_get_note(tamber_context* context, uint32_t position, tamber_note* note) {
  return WithContext(context, [&](CContext& own) -> int {
    if (note == nullptr) return TAMBER_BAD_ARGUMENT;
    const auto& notes = own.context.GetDiagnostic().notes;
    if (position >= notes.size()) return TAMBER_NOT_FOUND;
    *note = {notes[position].kind == TamberNote::Kind::Hint ? 1 : 0,
             notes[position].text.GetString()};
    return TAMBER_OK;
  });
}
