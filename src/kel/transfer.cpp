#include "kel/transfer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <memory>

#include "kel/clock.h"
#include "kel/curllib.h"
#include "kel/fileio.h"
#include "kel/kelascii.h"
#include "kel/stop.h"
#include "kel/url.h"

namespace kel {
namespace {

enum class Task { Get, Put, Delete, Rename, Probe };

/// What the task's own failure is called.
TransferStatus FailureOf(Task task) {
  switch (task) {
    case Task::Put:
    case Task::Rename:
      return TransferStatus::PutFile;
    case Task::Delete:
      return TransferStatus::DelFile;
    default:
      return TransferStatus::GetFile;
  }
}

/// What going beyond the limits is called.
TransferStatus LimitOf(Task task) {
  switch (task) {
    case Task::Put:
    case Task::Rename:
      return TransferStatus::PutLimit;
    case Task::Delete:
      return TransferStatus::Connect;
    default:
      return TransferStatus::GetLimit;
  }
}

/// How long a transfer that waits for the network goes on without a look at the clock and for a
/// stop.
constexpr int kMillisecondsPerLook = 10;

struct MultiCloser {
  void operator()(CURLM* multi) const { Curl()->multiCleanup(multi); }
};

/// The library is set up once for the process and never torn down: other threads may use it.
bool StartLibrary() {
  static const bool started =
      Curl() != nullptr && Curl()->globalInit(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return started;
}

/// One connection to a server and what is asked of it.
class Request {
 public:
  Request(const std::string& url, Task task, const TransferLimits& limits)
      : url_(Url::Parse(url)),
        task_(task),
        limits_(limits),
        curl_(StartLibrary() ? Curl()->easyInit() : nullptr) {
    if (curl_ == nullptr || !url_) return;
    scheme_ = url_->Get(Url::Part::Scheme);
    Set(CURLOPT_URL, url.c_str());
    SetLimits(limits);
    SetTrust();
    // A body that nobody asked for, such as the answer to a deletion, goes nowhere.
    Set(CURLOPT_WRITEFUNCTION, &Request::Discard);
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request() {
    if (curl_ == nullptr) return;
    Curl()->slistFreeAll(list_);
    Curl()->easyCleanup(curl_);
  }

  bool IsHttp() const { return scheme_.starts_with("http"); }
  bool IsFtp() const { return scheme_.starts_with("ftp"); }
  bool IsSftp() const { return scheme_ == "sftp"; }
  bool IsSmb() const { return scheme_.starts_with("smb"); }
  const Url& Address() const { return *url_; }

  /// Whether the server has said how long the file is.
  bool HasLength() const {
    curl_off_t length = -1;
    Curl()->easyGetinfo(curl_, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    return length >= 0;
  }

  template <class T>
  void Set(CURLoption option, T value) {
    if (curl_ != nullptr) Curl()->easySetopt(curl_, option, value);
  }
  /// A header line for HTTP, a command for FTP and SFTP.
  void AddLine(const std::string& line) {
    if (curl_ != nullptr) list_ = Curl()->slistAppend(list_, line.c_str());
  }
  curl_slist* Lines() const { return list_; }

  TransferStatus Run() {
    if (!url_) return TransferStatus::BadFormat;
    if (curl_ == nullptr) return FailureOf(task_);
    const CURLcode code = Perform();
    if (isLate_ || code == CURLE_FILESIZE_EXCEEDED) return LimitOf(task_);
    long response = 0;
    Curl()->easyGetinfo(curl_, CURLINFO_RESPONSE_CODE, &response);
    if (IsSmb() && IsRefusal(code) && !TakesShare()) return TransferStatus::ShareName;
    if (code != CURLE_OK) return StatusOf(code, response);
    return IsHttp() ? StatusOfResponse(response) : TransferStatus::Ok;
  }

 private:
  static size_t Discard(char*, size_t size, size_t count, void*) { return size * count; }

  static bool IsRefusal(CURLcode code) {
    return code == CURLE_REMOTE_FILE_NOT_FOUND || code == CURLE_REMOTE_ACCESS_DENIED;
  }
  /// Whether the server has the share and lets us in. The library says the same of a share as of a
  /// file in it, so the share is asked for by itself, which ends with another error.
  bool TakesShare() const {
    const std::string path = url_->Get(Url::Part::Path);
    const std::string share = path.substr(0, path.find_first_of("/\\", 1));
    Request request(url_->WithPath(share + "/"), Task::Probe, limits_);
    return request.curl_ != nullptr && !IsRefusal(request.Perform());
  }

  /// As the library's own waiting call, which would not look up more than once in a second.
  CURLcode Perform() {
    const std::unique_ptr<CURLM, MultiCloser> multi(Curl()->multiInit());
    if (!multi || Curl()->multiAddHandle(multi.get(), curl_) != CURLM_OK) {
      return CURLE_OUT_OF_MEMORY;
    }
    const CURLcode code = Drive(multi.get());
    if (code == CURLE_ABORTED_BY_CALLBACK) {
      // Nobody waits for a name server that does not answer.
      Set(CURLOPT_QUICK_EXIT, 1L);
    }
    Hush();
    Curl()->multiRemoveHandle(multi.get(), curl_);
    CheckStop();
    return code;
  }

  CURLcode Drive(CURLM* multi) {
    const uint64_t end = limits_.seconds == 0
                             ? UINT64_MAX
                             : MonotonicNanoseconds() + limits_.seconds * uint64_t{1'000'000'000};
    int running = 1;
    while (true) {
      if (Curl()->multiPerform(multi, &running) != CURLM_OK) return CURLE_OUT_OF_MEMORY;
      if (running == 0) break;
      isLate_ = MonotonicNanoseconds() >= end;
      if (isLate_ || IsStopRequested()) return CURLE_ABORTED_BY_CALLBACK;
      Curl()->multiPoll(multi, nullptr, 0, kMillisecondsPerLook, nullptr);
    }
    int left = 0;
    const CURLMsg* const message = Curl()->multiInfoRead(multi, &left);
    return message != nullptr ? message->data.result : CURLE_OUT_OF_MEMORY;
  }

  /// The library says goodbye to servers of some protocols and would wait for their answer, for
  /// minutes if need be: it finds that there will be none.
  void Hush() {
    curl_socket_t socket = CURL_SOCKET_BAD;
    Curl()->easyGetinfo(curl_, CURLINFO_ACTIVESOCKET, &socket);
    if (socket != CURL_SOCKET_BAD) ::shutdown(socket, SHUT_RD);
  }

  void SetLimits(const TransferLimits& limits) {
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(limits.connectSeconds));
    Set(CURLOPT_SERVER_RESPONSE_TIMEOUT, static_cast<long>(limits.stallSeconds));
    Set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    Set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(limits.stallSeconds));
    Set(CURLOPT_MAXFILESIZE_LARGE,
        static_cast<curl_off_t>(std::min<uint64_t>(limits.bytes, INT64_MAX)));
    Set(CURLOPT_PROTOCOLS_STR, scheme_.c_str());
    // Only what is read may be looked for elsewhere, and never with less protection.
    Set(CURLOPT_FOLLOWLOCATION, IsHttp() && (task_ == Task::Get || task_ == Task::Probe) ? 1L : 0L);
    Set(CURLOPT_MAXREDIRS, 5L);
    Set(CURLOPT_REDIR_PROTOCOLS_STR, scheme_ == "http" ? "http,https" : "https");
    Set(CURLOPT_FTP_SKIP_PASV_IP, 1L);
    Set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  }

  void SetTrust() {
    Set(CURLOPT_SSL_VERIFYPEER, 1L);
    Set(CURLOPT_SSL_VERIFYHOST, 2L);
    // The variable by which the system's other programs find certificates of a site's own.
    if (const char* authorities = ::getenv("SSL_CERT_FILE")) Set(CURLOPT_CAINFO, authorities);
    const char* home = ::getenv("HOME");
    const std::string hosts = std::string(home != nullptr ? home : "/root") + "/.ssh/known_hosts";
    Set(CURLOPT_SSH_KNOWNHOSTS, hosts.c_str());
  }

  /// Refused credentials are a matter of the password when there was one.
  TransferStatus Rejected() const {
    return url_->Get(Url::Part::Password).empty() ? TransferStatus::Login
                                                  : TransferStatus::Password;
  }

  TransferStatus StatusOfResponse(long response) const {
    if (response >= 200 && response < 300) return TransferStatus::Ok;
    switch (response) {
      case 401:
      case 407:
        return Rejected();
      case 404:
      case 410:
        return TransferStatus::BadPath;
      case 409:
        return task_ == Task::Get ? TransferStatus::GetFile : TransferStatus::BadPath;
      case 412:
        return TransferStatus::Exists;
      default:
        return FailureOf(task_);
    }
  }

  TransferStatus StatusOf(CURLcode code, long response) const {
    switch (code) {
      case CURLE_COULDNT_RESOLVE_PROXY:
      case CURLE_COULDNT_RESOLVE_HOST:
      case CURLE_COULDNT_CONNECT:
      case CURLE_OPERATION_TIMEDOUT:
        return HasBegun(response) ? Unfinished() : TransferStatus::Connect;
      case CURLE_FTP_ACCEPT_TIMEOUT:
      case CURLE_WEIRD_SERVER_REPLY:
      case CURLE_SSL_CONNECT_ERROR:
      case CURLE_PEER_FAILED_VERIFICATION:
      case CURLE_SSL_CACERT_BADFILE:
      case CURLE_SSL_ISSUER_ERROR:
      case CURLE_SSL_INVALIDCERTSTATUS:
      case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
      case CURLE_USE_SSL_FAILED:
        return TransferStatus::Connect;
      case CURLE_LOGIN_DENIED:
      case CURLE_FTP_WEIRD_PASS_REPLY:
        return Rejected();
      // Over HTTP it is not the URL that was given, but the one that the server sends on to.
      case CURLE_URL_MALFORMAT:
        return IsHttp() ? FailureOf(task_) : TransferStatus::BadFormat;
      case CURLE_UNSUPPORTED_PROTOCOL:
        return IsHttp() ? FailureOf(task_) : TransferStatus::BadProtocol;
      case CURLE_REMOTE_FILE_NOT_FOUND:
        return TransferStatus::BadPath;
      case CURLE_REMOTE_ACCESS_DENIED:
        // FTP says so of a directory, too, that is not there.
        return IsFtp() && (task_ == Task::Get || task_ == Task::Probe || response == 550)
                   ? TransferStatus::BadPath
                   : FailureOf(task_);
      case CURLE_WRITE_ERROR:
        return task_ == Task::Get ? TransferStatus::LocalWrite : FailureOf(task_);
      case CURLE_READ_ERROR:
      case CURLE_ABORTED_BY_CALLBACK:
        return TransferStatus::LocalRead;
      default:
        return HasGreeted() ? Unfinished() : TransferStatus::Connect;
      case CURLE_QUOTE_ERROR:
        return FailureOf(task_);
    }
  }

  /// A deletion without an answer has been done or not; anything else has failed.
  TransferStatus Unfinished() const {
    return task_ == Task::Delete ? TransferStatus::Connect : FailureOf(task_);
  }

  /// Whether the server had begun to answer, or to take what it is sent.
  bool HasBegun(long response) const {
    curl_off_t got = 0;
    curl_off_t sent = 0;
    Curl()->easyGetinfo(curl_, CURLINFO_SIZE_DOWNLOAD_T, &got);
    Curl()->easyGetinfo(curl_, CURLINFO_SIZE_UPLOAD_T, &sent);
    return got > 0 || sent > 0 || (IsHttp() && response != 0);
  }

  /// Whether a protected connection came about; an unprotected one always has.
  bool HasGreeted() const {
    curl_off_t time = 0;
    Curl()->easyGetinfo(curl_, CURLINFO_APPCONNECT_TIME_T, &time);
    return time > 0 || !(IsSftp() || scheme_ == "https" || scheme_ == "ftps");
  }

  std::optional<Url> url_;
  Task task_;
  TransferLimits limits_;
  std::string scheme_;
  CURL* curl_;
  curl_slist* list_ = nullptr;
  bool isLate_ = false;  ///< the time for all of it is up
};

/// Where a download goes.
struct Target {
  int descriptor;
  uint64_t left;  ///< bytes that may still come
  bool isFull = false;
};

size_t WriteToFile(char* data, size_t size, size_t count, void* to) {
  Target& target = *static_cast<Target*>(to);
  const size_t bytes = size * count;
  target.isFull = bytes > target.left;
  if (target.isFull || !WriteFull(target.descriptor, {data, bytes})) return 0;
  target.left -= bytes;
  return bytes;
}

/// What is sent: as many bytes as were announced, whatever becomes of the file meanwhile.
struct Body {
  int descriptor;
  uint64_t size;
  uint64_t left;
};

size_t ReadBody(char* data, size_t size, size_t count, void* source) {
  Body& body = *static_cast<Body*>(source);
  const uint64_t wanted = std::min<uint64_t>(size * count, body.left);
  const int64_t read = ReadFull(body.descriptor, data, wanted);
  if (read < 0 || static_cast<uint64_t>(read) < wanted) return CURL_READFUNC_ABORT;
  body.left -= wanted;
  return wanted;
}

/// Servers that ask for the body again, with credentials this time, get it from the start.
int SeekBody(void* source, curl_off_t offset, int origin) {
  Body& body = *static_cast<Body*>(source);
  const auto at = static_cast<uint64_t>(offset);
  if (origin != SEEK_SET || at > body.size) return CURL_SEEKFUNC_FAIL;
  body.left = body.size - at;
  return ::lseek(body.descriptor, offset, SEEK_SET) < 0 ? CURL_SEEKFUNC_FAIL : CURL_SEEKFUNC_OK;
}

/// Notes that there is something to read and ends the transfer.
size_t StopAtFirstByte(char*, size_t, size_t, void* found) {
  *static_cast<bool*>(found) = true;
  return 0;
}

/// A path as an SFTP command takes it: in quotes.
std::string Quoted(const std::string& path) {
  std::string text = "\"";
  for (const char c : path) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text + '"';
}

/// A URL's path as SFTP takes it in a command: "/~/" is the user's own directory, where a path
/// without a separator in front begins.
std::string SftpPath(const Url& url) {
  const std::string path = url.Get(Url::Part::Path, true);
  return Quoted(path.starts_with("/~/") ? path.substr(3) : path);
}

/// A URL's path as FTP takes it in a command: from the user's own directory, "//" from the top.
std::string FtpPath(const Url& url) {
  std::string path = url.Get(Url::Part::Path, true);
  if (path.starts_with('/')) path.erase(0, 1);
  return path;
}

TransferStatus RunCommands(const std::string& url, Task task, const TransferLimits& limits,
                           std::initializer_list<std::string> commands) {
  const auto address = Url::Parse(url);
  if (!address) return TransferStatus::BadFormat;
  Request request(address->WithPath("/"), task, limits);
  for (const std::string& command : commands) request.AddLine(command);
  request.Set(CURLOPT_QUOTE, request.Lines());
  request.Set(CURLOPT_NOBODY, 1L);
  return request.Run();
}

/// Ok when there is a file, BadPath when there is none. With `ask` the server is asked about it,
/// which not every protocol can and not every server does: GetFile. Otherwise it is read, as far as
/// the first byte.
TransferStatus Probe(const std::string& url, bool ask, const TransferLimits& limits) {
  Request request(url, Task::Probe, limits);
  bool found = false;
  if (ask && !request.IsHttp() && !request.IsFtp()) return TransferStatus::GetFile;
  if (ask) {
    request.Set(CURLOPT_NOBODY, 1L);
  } else {
    request.Set(CURLOPT_WRITEFUNCTION, &StopAtFirstByte);
    request.Set(CURLOPT_WRITEDATA, &found);
  }
  const TransferStatus status = request.Run();
  if (ask && status == TransferStatus::Ok && request.IsFtp() && !request.HasLength()) {
    return TransferStatus::GetFile;
  }
  return found ? TransferStatus::Ok : status;
}

}  // namespace

TransferStatus Download(const std::string& url, int descriptor, const TransferLimits& limits) {
  Request request(url, Task::Get, limits);
  request.Set(CURLOPT_WRITEFUNCTION, &WriteToFile);
  Target target{descriptor, limits.bytes == 0 ? UINT64_MAX : limits.bytes};
  request.Set(CURLOPT_WRITEDATA, &target);
  const TransferStatus status = request.Run();
  return target.isFull ? TransferStatus::GetLimit : status;
}

TransferStatus Upload(int descriptor, uint64_t size, const std::string& url, bool replace,
                      const TransferLimits& limits) {
  if (limits.bytes != 0 && size > limits.bytes) return TransferStatus::PutLimit;
  if (::lseek(descriptor, 0, SEEK_SET) != 0) return TransferStatus::LocalRead;
  Request request(url, Task::Put, limits);
  request.Set(CURLOPT_UPLOAD, 1L);
  Body body{descriptor, size, size};
  request.Set(CURLOPT_READFUNCTION, &ReadBody);
  request.Set(CURLOPT_READDATA, &body);
  request.Set(CURLOPT_SEEKFUNCTION, &SeekBody);
  request.Set(CURLOPT_SEEKDATA, &body);
  if (!replace && request.IsHttp()) {
    request.AddLine("If-None-Match: *");
    request.Set(CURLOPT_HTTPHEADER, request.Lines());
  }
  request.Set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(size));
  return request.Run();
}

bool CanDeleteRemote(const std::string& url) {
  const auto address = Url::Parse(url);
  return address && !address->Get(Url::Part::Scheme).starts_with("smb");
}

TransferStatus DeleteRemote(const std::string& url, const TransferLimits& limits) {
  Request request(url, Task::Delete, limits);
  if (request.IsHttp()) {
    request.Set(CURLOPT_CUSTOMREQUEST, "DELETE");
    return request.Run();
  }
  const auto address = Url::Parse(url);
  if (!address) return TransferStatus::BadFormat;
  if (request.IsFtp()) return RunCommands(url, Task::Delete, limits, {"DELE " + FtpPath(*address)});
  if (request.IsSftp()) {
    return RunCommands(url, Task::Delete, limits, {"rm " + SftpPath(*address)});
  }
  return TransferStatus::DelFile;
}

TransferStatus CheckFree(const std::string& url, const TransferLimits& limits) {
  TransferStatus status = Probe(url, true, limits);
  if (status == TransferStatus::GetFile) status = Probe(url, false, limits);
  if (status == TransferStatus::Ok) return TransferStatus::Exists;
  if (status == TransferStatus::BadPath) return TransferStatus::Ok;
  if (status != TransferStatus::GetFile) return status;
  // Something that may not be read. Over HTTP what is sent says that it must not replace anything.
  const auto address = Url::Parse(url);
  const bool isHttp = address && address->Get(Url::Part::Scheme).starts_with("http");
  return isHttp ? TransferStatus::Ok : TransferStatus::Exists;
}

bool IsSameServer(const std::string& url, const std::string& other) {
  const auto first = Url::Parse(url);
  const auto second = Url::Parse(other);
  if (!first || !second) return false;
  return EqualsNoCase(first->Get(Url::Part::Host), second->Get(Url::Part::Host)) &&
         first->Get(Url::Part::Scheme) == second->Get(Url::Part::Scheme) &&
         first->Get(Url::Part::Port) == second->Get(Url::Part::Port) &&
         first->Get(Url::Part::User) == second->Get(Url::Part::User);
}

TransferStatus RenameRemote(const std::string& url, const std::string& newUrl,
                            const TransferLimits& limits) {
  const auto from = Url::Parse(url);
  const auto to = Url::Parse(newUrl);
  if (!from || !to) return TransferStatus::BadFormat;
  Request request(url, Task::Rename, limits);
  if (request.IsHttp()) {
    request.AddLine("Destination: " + to->WithoutSecrets());
    request.AddLine("Overwrite: F");
    request.Set(CURLOPT_HTTPHEADER, request.Lines());
    request.Set(CURLOPT_CUSTOMREQUEST, "MOVE");
    return request.Run();
  }
  if (request.IsFtp()) {
    return RunCommands(url, Task::Rename, limits,
                       {"RNFR " + FtpPath(*from), "RNTO " + FtpPath(*to)});
  }
  if (request.IsSftp()) {
    return RunCommands(url, Task::Rename, limits,
                       {"rename " + SftpPath(*from) + " " + SftpPath(*to)});
  }
  return TransferStatus::PutFile;
}

}  // namespace kel
