// A server on 127.0.0.1: worker threads, one program, a context for each request, a session for
// each client.
//
//     http_server PORT SCRIPT INI FOLDER
//
// Port 0 is any that is free. The INI file names the store of the sessions. Scripts may read files
// in the folder, and do nothing else outside of the process. SIGHUP compiles the script anew.
#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <tamber.h>

#include <array>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>

namespace {

using Program = std::shared_ptr<const TamberProgram>;
using Clock = std::chrono::steady_clock;

constexpr unsigned kWorkers = 4;
constexpr std::chrono::milliseconds kLongestRun(500);
constexpr const char* kCookie = "session";

/// The request that this thread serves: what functions of the host look at.
thread_local MHD_Connection* theRequest = nullptr;

std::string Argument(std::string_view name) {
  const char* value =
      MHD_lookup_connection_value(theRequest, MHD_GET_ARGUMENT_KIND, std::string(name).c_str());
  return value != nullptr ? value : "";
}

/// What comes from outside is never evaluated as an expression.
int32_t Number(std::string_view name) {
  const std::string text = Argument(name);
  int32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number);
  if (read.ec != std::errc() || read.ptr != end)
    throw tamber::ScriptError(ERR_INVALIDPARAM, std::string(name) + " is a number");
  return number;
}

/// One thread that stops whatever runs for too long.
class TimeLimits {
 public:
  TimeLimits() : watch_([this] { Watch(); }) {}
  TimeLimits(const TimeLimits&) = delete;
  TimeLimits& operator=(const TimeLimits&) = delete;
  ~TimeLimits() {
    {
      const std::lock_guard lock(mutex_);
      ended_ = true;
    }
    changed_.notify_one();
    watch_.join();
  }

  /// As long as this is there, the context's time runs.
  class Limited {
   public:
    Limited(TimeLimits& limits, TamberContext& context)
        : limits_(limits), entry_(Clock::now() + kLongestRun, &context) {
      const std::lock_guard lock(limits_.mutex_);
      limits_.running_.insert(entry_);
      if (limits_.running_.size() == 1) limits_.changed_.notify_one();
    }
    Limited(const Limited&) = delete;
    Limited& operator=(const Limited&) = delete;
    ~Limited() {
      const std::lock_guard lock(limits_.mutex_);
      limits_.running_.erase(entry_);
    }

   private:
    TimeLimits& limits_;
    std::pair<Clock::time_point, TamberContext*> entry_;
  };

 private:
  void Watch() {
    std::unique_lock lock(mutex_);
    while (!ended_) {
      if (running_.empty()) {
        changed_.wait(lock);
      } else if (const auto first = *running_.begin(); first.first > Clock::now()) {
        changed_.wait_until(lock, first.first);
      } else {
        first.second->RequestStop();
        running_.erase(first);
      }
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::set<std::pair<Clock::time_point, TamberContext*>> running_;
  bool ended_ = false;
  std::thread watch_;
};

struct Answer {
  unsigned status = MHD_HTTP_OK;
  std::string body;
};

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    if (static_cast<unsigned char>(c) >= ' ') {
      quoted += c;
    } else {
      std::array<char, 8> code{};
      std::snprintf(code.data(), code.size(), "\\u%04x", static_cast<unsigned>(c));
      quoted += code.data();
    }
  }
  return quoted + '"';
}

/// An error is data like any other answer.
Answer Failed(const TamberDiagnostic& error) {
  return {error.code == ERR_STOPPED ? unsigned{MHD_HTTP_SERVICE_UNAVAILABLE}
                                    : unsigned{MHD_HTTP_INTERNAL_SERVER_ERROR},
          "{\"code\": " + std::to_string(error.code) + ", \"name\": " + Quoted(error.name.Str()) +
              ", \"line\": " + std::to_string(error.line) +
              ", \"detail\": " + Quoted(error.detail.Str()) + "}\n"};
}

Answer StoreFailed(const TamberContext& context) {
  std::cerr << "session: " << context.GetSessionFault().Str() << '\n';
  return {MHD_HTTP_SERVICE_UNAVAILABLE, "{\"error\": \"the session store has failed\"}\n"};
}

class Server {
 public:
  Server(const char* script, const char* ini, const char* folder)
      : script_(script), ini_(ini), folder_(folder) {}

  /// Compiles the script as it is now. Requests that run end on the program that they began with,
  /// which goes away with the last of them; when the new one does not compile, it stays.
  bool Reload() {
    TamberContext context;
    context.SetIniPath(KelString(ini_));
    context.SetDefaultReports(false);
    kel::FilePolicy policy;
    policy.SetAccess(kel::Access::None);
    policy.SetNetwork(false);
    policy.SetEnvironment(false);
    policy.SetDirectoryName(false);
    if (!policy.AddDirectory(folder_, kel::Access::Read)) {
      std::cerr << folder_ << ": no such folder\n";
      return false;
    }
    context.SetFilePolicy(policy);
    RegisterFunction(context, "string Argument (string Name)", Argument);
    RegisterFunction(context, "int Number (string Name)", Number);
    Program program;
    if (context.CompileScriptFile(KelString(script_)) != 0) program = context.Freeze();
    if (program == nullptr) {
      const TamberDiagnostic& error = context.GetDiagnostic();
      std::cerr << error.file.Str() << ':' << error.line << ": " << error.text.Str() << '\n';
      return false;
    }
    const std::lock_guard lock(mutex_);
    program_.swap(program);
    return true;
  }

  Answer Serve(const char* path, uint32_t session) {
    TamberContext context(CurrentProgram());
    std::string body;
    context.SetOutputSink(
        [](std::string_view text, void* user) { static_cast<std::string*>(user)->append(text); },
        &body);
    // Two requests of a session at the same time would each save what they have changed.
    const std::lock_guard turn(turns_[session % turns_.size()]);
    context.SetSessionId(session);
    if (context.LoadSession() == 0) return StoreFailed(context);
    {
      const TimeLimits::Limited limited(limits_, context);
      const auto done = Call(context, "Serve", path);
      // Of a request that has failed nothing is saved.
      if (!done) return Failed(done.Error());
    }
    context.CancelStop();  // one that came too late
    // What the client is told is in the store.
    if (context.SaveSession() == 0) return StoreFailed(context);
    return {MHD_HTTP_OK, std::move(body)};
  }

 private:
  Program CurrentProgram() {
    const std::lock_guard lock(mutex_);
    return program_;
  }

  const std::string script_, ini_, folder_;
  std::mutex mutex_;  ///< of the program
  Program program_;
  TimeLimits limits_;
  std::array<std::mutex, 256> turns_;
};

/// The session that the request's cookie names, or a new one. Whoever guesses a number has the
/// session; on an open network a secret belongs beside it.
uint32_t SessionOf(MHD_Connection* connection, bool& isNew) {
  const char* cookie = MHD_lookup_connection_value(connection, MHD_COOKIE_KIND, kCookie);
  auto session = static_cast<uint32_t>(cookie != nullptr ? std::strtoul(cookie, nullptr, 10) : 0);
  isNew = session == 0;
  while (session == 0) session = std::random_device{}();
  return session;
}

MHD_Result Send(MHD_Connection* connection, const Answer& answer, const std::string& cookie) {
  MHD_Response* response = MHD_create_response_from_buffer(
      answer.body.size(), const_cast<char*>(answer.body.data()), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return MHD_NO;
  if (!cookie.empty())
    MHD_add_response_header(response, MHD_HTTP_HEADER_SET_COOKIE, cookie.c_str());
  const MHD_Result queued = MHD_queue_response(connection, answer.status, response);
  MHD_destroy_response(response);
  return queued;
}

/// Called by a worker thread, for each request twice: when its headers are there, and at its end.
MHD_Result OnRequest(void* server, MHD_Connection* connection, const char* path, const char* method,
                     const char* /*version*/, const char* /*data*/, size_t* size, void** begun) {
  if (*begun == nullptr) {
    *begun = server;
    return MHD_YES;
  }
  if (*size != 0 || std::string_view(method) != MHD_HTTP_METHOD_GET) {
    *size = 0;
    return Send(connection, {MHD_HTTP_METHOD_NOT_ALLOWED, "only GET\n"}, "");
  }
  bool isNew = false;
  const uint32_t session = SessionOf(connection, isNew);
  theRequest = connection;
  Answer answer;
  try {
    answer = static_cast<Server*>(server)->Serve(path, session);
  } catch (const std::exception& failure) {
    answer = {MHD_HTTP_INTERNAL_SERVER_ERROR, std::string(failure.what()) + '\n'};
  }
  theRequest = nullptr;
  return Send(
      connection, answer,
      isNew ? kCookie + ("=" + std::to_string(session)) + "; HttpOnly; SameSite=Strict" : "");
}

}  // namespace

int main(int count, char** words) {
  if (count != 5) {
    std::cerr << "usage: http_server PORT SCRIPT INI FOLDER\n";
    return 2;
  }
  // All threads begin with the signals blocked; this one waits for them.
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  Server server(words[2], words[3], words[4]);
  if (!server.Reload()) return 1;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(std::atoi(words[1])));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  MHD_Daemon* daemon = MHD_start_daemon(
      MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ERROR_LOG, 0, nullptr, nullptr,
      OnRequest, &server, MHD_OPTION_SOCK_ADDR, &address, MHD_OPTION_THREAD_POOL_SIZE, kWorkers,
      MHD_OPTION_CONNECTION_TIMEOUT, 30U, MHD_OPTION_END);
  if (daemon == nullptr) return 1;
  std::cout << MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT)->port << std::endl;
  int signal = 0;
  while (sigwait(&signals, &signal) == 0 && signal == SIGHUP)
    std::cout << (server.Reload() ? "reloaded" : "not reloaded") << std::endl;
  MHD_stop_daemon(daemon);
  return 0;
}
