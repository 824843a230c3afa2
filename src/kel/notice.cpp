#include "kel/notice.h"

#include <mutex>

#include "kel/file.h"
#include "kel/stop.h"

namespace kel {
namespace {

/// Handler and user data change together, and a handler may itself show a notice or install another
/// one: it runs on a copy, outside the lock.
struct Registration {
  NoticeHandler handler = nullptr;
  void* user = nullptr;
};

std::mutex registrationMutex;
Registration registration;

Registration CurrentRegistration() {
  const std::lock_guard lock(registrationMutex);
  return registration;
}

void WriteLine(const KelString& caption, const KelString& text) {
  std::string line = Format("%S: %S", caption, text);
  for (char& c : line) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  line += '\n';
  WriteStandardError(line);
}

}  // namespace

void SetNoticeHandler(NoticeHandler handler, void* user) {
  const std::lock_guard lock(registrationMutex);
  registration = {handler, user};
}

void Notice(const KelString& caption, const KelString& text) {
  try {
    const Registration current = CurrentRegistration();
    if (current.handler != nullptr) {
      const Interruptible interruptible(false);
      current.handler(current.user, caption, text);
    } else {
      WriteLine(caption, text);
    }
  } catch (...) {  // A notice that cannot be shown must not become an error of the script.
  }
}

}  // namespace kel
