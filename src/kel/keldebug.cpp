#include "kel/keldebug.h"

bool KelDebugContext::IsEnabled(Level) const { return true; }

void KelDebugContext::Write(Level, const KelString&, const KelString&) {}

const char* KelDebugLevelName(KelDebugContext::Level level) {
  switch (level) {
    case KelDebugContext::Level::Error:
      return "error";
    case KelDebugContext::Level::Warning:
      return "warning";
    case KelDebugContext::Level::Info:
      return "info";
    case KelDebugContext::Level::Detail:
      break;
  }
  return "detail";
}

KelDebug::KelDebug(const KelString& name, const KelString& description)
    : name_(name), description_(description) {}

bool KelDebug::IsEnabled(Level level) const {
  try {
    return context_ != nullptr && context_->IsEnabled(level);
  } catch (...) {
    return false;
  }
}

void KelDebug::Log(Level level, const KelString& text) const {
  if (!IsEnabled(level)) return;
  try {
    context_->Write(level, name_, text);
  } catch (...) {  // A host's log that fails must not change what a script does.
  }
}
