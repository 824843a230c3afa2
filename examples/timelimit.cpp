#include <tamber.h>

#include <chrono>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <thread>

namespace {

/// Stops what a context runs when it takes longer than a request may.
class TimeLimit {
 public:
  TimeLimit(TamberContext& context, std::chrono::milliseconds time)
      : timer_([this, &context, time] {
          std::unique_lock lock(mutex_);
          if (!wake_.wait_for(lock, time, [this] { return ended_; })) context.RequestStop();
        }) {}
  TimeLimit(const TimeLimit&) = delete;
  TimeLimit& operator=(const TimeLimit&) = delete;
  ~TimeLimit() {
    {
      const std::lock_guard lock(mutex_);
      ended_ = true;
    }
    wake_.notify_one();
    timer_.join();
  }

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  bool ended_ = false;
  std::thread timer_;
};

void Serve(TamberContext& context, const char* procedure) {
  {
    const TimeLimit limit(context, std::chrono::milliseconds(200));
    if (const auto answer = Call<int32_t>(context, procedure))
      std::cout << procedure << ": " << answer.Value() << '\n';
    else
      std::cout << procedure << ": " << answer.Error().name.Str() << " in line "
                << answer.Error().line << '\n';
  }
  // The timer is gone, and with it whatever it may have asked for too late.
  context.CancelStop();
}

}  // namespace

int main() {
  TamberContext context;
  const KelString script(
      "int requests\n"
      "int Count()\n"
      "  requests += 1\n"
      "  return requests\n"
      "endproc\n"
      "int Hang()\n"
      "  while TRUE\n"
      "    requests += 0\n"
      "  wend\n"
      "  return Count()\n"
      "endproc\n");
  if (context.CompileScriptBuffer("requests", script, 1) == 0) return 1;
  for (const char* procedure : {"Count", "Hang", "Count"}) Serve(context, procedure);
  return 0;
}
