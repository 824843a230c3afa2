#pragma once

#include "kel/export.h"
#include "kel/kelstring.h"

/// Where debug messages go. A host derives from this and attaches it to a context; an instance of
/// the class itself throws everything away.
class TAMBER_API KelDebugContext {
 public:
  enum class Level { Error, Warning, Info, Detail };

  virtual ~KelDebugContext() = default;

  /// Asked before a message is made up; levels that nobody reads cost nothing then.
  virtual bool IsEnabled(Level level) const;
  /// Takes one message, without a line end. Called on the thread that the message comes from.
  virtual void Write(Level level, const KelString& channel, const KelString& text);
};

/// "error", "warning", "info" or "detail".
TAMBER_API const char* KelDebugLevelName(KelDebugContext::Level level);

/// A named debug channel. Writes nothing until a `KelDebugContext` is attached, which must outlive
/// it or be detached before.
class TAMBER_API KelDebug {
 public:
  using Level = KelDebugContext::Level;

  KelDebug(const KelString& name, const KelString& description);

  void SetContext(KelDebugContext* context) { context_ = context; }
  KelDebugContext* GetContext() const { return context_; }
  const KelString& GetName() const { return name_; }
  const KelString& GetDescription() const { return description_; }

  bool IsEnabled(Level level) const;
  /// Passes a message on. Exceptions of the host's context end here.
  void Log(Level level, const KelString& text) const;

  /// As `Log`, formatted (see kelformat.h) only when somebody reads this level.
  template <class... Args>
  void Logf(Level level, std::string_view format, const Args&... args) const {
    if (IsEnabled(level)) Log(level, kel::Format(format, args...));
  }

 private:
  KelString name_;
  KelString description_;
  KelDebugContext* context_ = nullptr;
};
