#include <hiredis/hiredis.h>
#include <pthread.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <memory>
#include <utility>

#include "kel/clock.h"
#include "kel/lazylibrary.h"
#include "kel/longstring.h"
#include "kel/number.h"
#include "kel/rediswire.h"
#include "kel/stop.h"
#include "kel/storebackend.h"

namespace kel {
namespace {

LazyLibrary hiredis(KEL_SONAME_HIREDIS);
KEL_LAZY(hiredis, redisReaderCreate);
KEL_LAZY(hiredis, redisReaderFeed);
KEL_LAZY(hiredis, redisReaderGetReply);
KEL_LAZY(hiredis, redisReaderFree);
KEL_LAZY(hiredis, freeReplyObject);

constexpr uint64_t kPauseNanoseconds = 2'000'000'000;  // after a failure, before the next attempt
constexpr std::string_view kNamespace = "tamber:";

struct FreeReader {
  void operator()(redisReader* reader) const { redisReaderFree(reader); }
};
struct FreeReply {
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, FreeReply>;

/// The client library writes to its socket in a way that raises SIGPIPE when the server went away.
/// What the signal does belongs to the host, so it is kept from this thread and taken off.
class NoBrokenPipe {
 public:
  NoBrokenPipe() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  NoBrokenPipe(const NoBrokenPipe&) = delete;
  NoBrokenPipe& operator=(const NoBrokenPipe&) = delete;
  ~NoBrokenPipe() {
    const timespec now{};
    if (!wasPending_) sigtimedwait(&pipe_, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t pipe_{};
  sigset_t before_{};
  bool wasPending_ = false;
};

using Command = std::vector<std::string>;

std::string Encode(const std::vector<Command>& commands) {
  std::string bytes;
  for (const Command& command : commands) {
    bytes.append("*").append(std::to_string(command.size())).append("\r\n");
    for (const std::string& part : command) {
      bytes.append("$").append(std::to_string(part.size())).append("\r\n");
      Append(bytes, part);
      bytes.append("\r\n");
    }
  }
  return bytes;
}

/// Where a key is kept: "session/7/name" is the field "name" of the hash "tamber:session/7/".
struct Place {
  explicit Place(std::string_view key) {
    const size_t first = key.find('/');
    const size_t second = first == std::string_view::npos ? first : key.find('/', first + 1);
    whole = second != std::string_view::npos;
    const size_t cut = whole ? second + 1 : key.size();
    bucket = key.substr(0, cut);
    field = key.substr(cut);
  }
  std::string Hash() const { return std::string(kNamespace) + std::string(bucket); }

  bool whole;  ///< false: the key ends before the name of a hash does
  std::string_view bucket;
  std::string_view field;
};

/// One letter for the kind, then the value.
std::string Encode(const StoreValue& value) {
  const auto* text = std::get_if<std::string>(&value);
  std::string stored(1, text != nullptr ? 't' : 'i');
  Append(stored, text != nullptr ? *text : std::to_string(std::get<int64_t>(value)));
  return stored;
}

bool Decode(std::string_view stored, StoreValue& value) {
  if (stored.empty()) return false;
  const std::string_view rest = stored.substr(1);
  if (stored[0] == 't') {
    value = CopyOf(rest);
    return true;
  }
  int64_t number = 0;
  if (stored[0] != 'i' || !ParseInt64Prefix(rest, number)) return false;
  value = number;
  return true;
}

/// A pattern that matches what begins with the text.
std::string PatternOf(std::string_view text) {
  std::string pattern;
  for (const char c : text) {
    if (std::string_view("*?[]^\\").find(c) != std::string_view::npos) pattern += '\\';
    pattern += c;
  }
  return pattern + '*';
}

std::string_view TextOf(const redisReply& reply) {
  return reply.str != nullptr ? std::string_view(reply.str, reply.len) : std::string_view();
}

/// The error in a reply, or in one of the replies that the end of a transaction brings.
std::string RefusalIn(const redisReply& reply) {
  if (reply.type == REDIS_REPLY_ERROR) return std::string(TextOf(reply));
  for (size_t i = 0; reply.type == REDIS_REPLY_ARRAY && i < reply.elements; ++i) {
    if (reply.element[i]->type == REDIS_REPLY_ERROR) return std::string(TextOf(*reply.element[i]));
  }
  return {};
}

class RedisBackend final : public StoreBackend {
 public:
  RedisBackend(std::string_view address, const StoreAccess& access) : access_(access) {
    badAddress_ = access.isRefused ? "the host's file policy refuses it"
                                   : ParseServerAddress(address, address_);
    if (!access.user.empty()) address_.user = access.user;
    if (!access.password.empty()) address_.password = access.password;
  }

  bool Get(std::string_view key, StoreValue& value) override {
    const Place place(key);
    const Reply reply = Ask({"HGET", place.Hash(), std::string(place.field)});
    return reply && reply->type == REDIS_REPLY_STRING && Decode(TextOf(*reply), value);
  }

  /// A session is one hash, which comes in one reply.
  bool Tree(std::string_view prefix, StoreTree& tree) override {
    const Place place(prefix);
    if (!place.whole || !place.field.empty()) return false;
    const Reply reply = Ask({"HGETALL", place.Hash()});
    if (!reply || reply->type != REDIS_REPLY_ARRAY) return false;
    for (size_t i = 0; i + 1 < reply->elements; i += 2) {
      CheckStop();
      std::string key(place.bucket);
      StoreValue value;
      if (!Decode(TextOf(*reply->element[i + 1]), value)) continue;
      tree.emplace(key.append(TextOf(*reply->element[i])), std::move(value));
    }
    return true;
  }

  /// A transaction of the server: the commands go out in one piece and take effect together.
  bool Apply(std::span<const StoreChange> changes) override {
    std::vector<Command> commands;
    for (const StoreChange& change : changes) AddCommands(change, commands);
    if (!fault.empty()) return false;
    if (commands.empty()) return true;
    if (commands.size() > 1) {
      commands.insert(commands.begin(), {"MULTI"});
      commands.push_back({"EXEC"});
    }
    return Send(commands) != nullptr;
  }

  std::vector<std::string> Keys(std::string_view prefix) override {
    const Place place(prefix);
    std::vector<std::string> keys;
    for (const std::string& bucket : BucketsOf(place)) {
      for (std::string& field : Fields(bucket)) {
        if (field.starts_with(place.whole ? place.field : "")) keys.push_back(bucket + field);
      }
    }
    std::sort(keys.begin(), keys.end());
    return keys;
  }

  std::vector<std::string> Children(std::string_view prefix) override {
    const Place place(prefix);
    return ChildrenOf(place.whole ? Keys(prefix) : BucketsOf(place), prefix);
  }

  /// A connection that broke is made again at its next use.
  bool IsCurrent() const override { return true; }

 private:
  void AddCommands(const StoreChange& change, std::vector<Command>& commands) {
    const Place place(change.key);
    if (change.kind == StoreChange::Kind::Set) {
      // The values of one session, which come one after the other, become one command.
      const std::string hash = place.Hash();
      if (commands.empty() || commands.back()[0] != "HSET" || commands.back()[1] != hash) {
        commands.push_back({"HSET", hash});
      }
      commands.back().emplace_back(place.field);
      commands.back().push_back(Encode(change.value));
    } else if (place.whole && !place.field.empty()) {
      Command removal{"HDEL", place.Hash()};
      for (std::string& field : Fields(std::string(place.bucket))) {
        if (field.starts_with(place.field)) removal.push_back(std::move(field));
      }
      if (removal.size() > 2) commands.push_back(std::move(removal));
    } else {
      for (const std::string& bucket : BucketsOf(place)) {
        commands.push_back({"DEL", std::string(kNamespace) + bucket});
      }
    }
  }

  std::vector<std::string> Fields(const std::string& bucket) {
    return Texts(Ask({"HKEYS", std::string(kNamespace) + bucket}).get());
  }

  /// The hashes in which keys that begin so may be.
  std::vector<std::string> BucketsOf(const Place& place) {
    if (place.whole) return {std::string(place.bucket)};
    std::vector<std::string> buckets;
    std::string cursor = "0";
    do {
      const Reply reply = Ask({"SCAN", cursor, "MATCH", PatternOf(place.Hash()), "COUNT", "1000"});
      if (!reply || reply->type != REDIS_REPLY_ARRAY || reply->elements != 2) break;
      cursor = TextOf(*reply->element[0]);
      for (const std::string& name : Texts(reply->element[1])) {
        if (name.starts_with(kNamespace)) buckets.push_back(name.substr(kNamespace.size()));
      }
    } while (cursor != "0");
    std::sort(buckets.begin(), buckets.end());  // a scan may give a name twice
    buckets.erase(std::unique(buckets.begin(), buckets.end()), buckets.end());
    return buckets;
  }

  static std::vector<std::string> Texts(const redisReply* reply) {
    std::vector<std::string> texts;
    for (size_t i = 0; reply != nullptr && i < reply->elements; ++i) {
      texts.emplace_back(TextOf(*reply->element[i]));
    }
    return texts;
  }

  Reply Ask(Command command) { return Send({std::move(command)}); }

  /// The reply to the last command; null when one failed. All that is sent may be sent again, so a
  /// connection that turns out to be broken is made anew once.
  Reply Send(const std::vector<Command>& commands) {
    const NoBrokenPipe guard;
    for (int attempt = 0; attempt < 2; ++attempt) {
      if (!Connect()) return nullptr;
      Reply reply = ExchangeOrHangUp(commands);
      if (wire_->fault.empty()) return reply;
      fault = wire_->fault;
      wire_.reset();
    }
    Pause();
    return nullptr;
  }

  /// A stop leaves the connection in the middle of a reply. Of a transaction the server has then
  /// taken all or nothing.
  Reply ExchangeOrHangUp(const std::vector<Command>& commands) {
    try {
      return Exchange(commands);
    } catch (const Interrupted&) {
      wire_.reset();
      throw;
    }
  }

  /// Null when a command was refused, or, with a fault of the connection, when that is of no more
  /// use.
  Reply Exchange(const std::vector<Command>& commands) {
    if (!wire_->Send(Encode(commands))) return nullptr;
    Reply last;
    std::string refusal;
    for (size_t i = 0; i < commands.size(); ++i) {
      last = ReadReply();
      if (last == nullptr) return nullptr;
      if (refusal.empty()) refusal = RefusalIn(*last);
    }
    if (refusal.empty()) {
      fault.clear();
      return last;
    }
    fault = refusal;
    return nullptr;
  }

  Reply ReadReply() {
    for (;;) {
      void* raw = nullptr;
      if (redisReaderGetReply(reader_.get(), &raw) != REDIS_OK) {
        wire_->fault = "what answers is no such server";
        return nullptr;
      }
      if (raw != nullptr) return Reply(static_cast<redisReply*>(raw));
      char bytes[16384];
      const size_t count = wire_->Receive(bytes, sizeof bytes);
      if (count == 0) return nullptr;
      redisReaderFeed(reader_.get(), bytes, count);
    }
  }

  bool Connect() {
    if (wire_ != nullptr) return true;
    if (!badAddress_.empty()) {
      fault = badAddress_;
      return false;
    }
    if (MonotonicNanoseconds() < notBefore_) {
      fault = lastFault_;
      return false;
    }
    reader_.reset(redisReaderCreate());
    wire_ = address_.isSecure ? ConnectSecure(address_, access_, fault)
                              : ConnectPlain(address_, access_.milliseconds, fault);
    if (wire_ != nullptr && reader_ != nullptr) {
      if (ExchangeOrHangUp(Greeting())) return true;
      if (!wire_->fault.empty()) fault = wire_->fault;
    }
    wire_.reset();
    Pause();
    return false;
  }

  std::vector<Command> Greeting() const {
    std::vector<Command> commands;
    if (!address_.password.empty()) {
      commands.push_back({"AUTH"});
      if (!address_.user.empty()) commands.back().push_back(address_.user);
      commands.back().push_back(address_.password);
    }
    commands.push_back({"SELECT", address_.database});
    return commands;
  }

  /// A script with many session variables must not wait for a dead server once for each of them.
  void Pause() {
    notBefore_ = MonotonicNanoseconds() + kPauseNanoseconds;
    lastFault_ = fault;
  }

  ServerAddress address_;
  StoreAccess access_;
  std::string badAddress_;
  std::unique_ptr<RedisWire> wire_;
  std::unique_ptr<redisReader, FreeReader> reader_;
  uint64_t notBefore_ = 0;
  std::string lastFault_;
};

}  // namespace

std::shared_ptr<StoreBackend> MakeRedisBackend(std::string_view address,
                                               const StoreAccess& access) {
  return std::make_shared<RedisBackend>(address, access);
}

}  // namespace kel
