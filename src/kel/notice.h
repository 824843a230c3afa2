#pragma once

#include "kel/export.h"
#include "kel/kelstring.h"

/// Notices to the operator: what another system would show in a message box. They never wait.
namespace kel {

/// `user` is what was passed with the handler. May be called from any thread.
using NoticeHandler = void (*)(void* user, const KelString& caption, const KelString& text);

/// Installs the handler of the process; null brings back the default, one line "CAPTION: TEXT" on
/// standard error.
TAMBER_API void SetNoticeHandler(NoticeHandler handler, void* user);

/// Shows a notice. Exceptions of the handler end here.
TAMBER_API void Notice(const KelString& caption, const KelString& text);

}  // namespace kel
