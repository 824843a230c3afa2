#include <hiredis/hiredis.h>
#include <pthread.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <memory>
#include <utility>

#include "kel/clock.h"
#include "kel/lazylibrary.h"
#include "kel/number.h"
#include "kel/storebackend.h"

namespace kel {
namespace {

LazyLibrary hiredis(KEL_SONAME_HIREDIS);
KEL_LAZY(hiredis, redisConnectWithTimeout);
KEL_LAZY(hiredis, redisSetTimeout);
KEL_LAZY(hiredis, redisAppendCommandArgv);
KEL_LAZY(hiredis, redisGetReply);
KEL_LAZY(hiredis, redisFree);
KEL_LAZY(hiredis, freeReplyObject);

constexpr timeval kConnectTime{1, 0};
constexpr timeval kReplyTime{1, 0};
constexpr uint64_t kPauseNanoseconds = 2'000'000'000;  // after a failure, before the next attempt
constexpr std::string_view kNamespace = "tamber:";

struct FreeConnection {
  void operator()(redisContext* connection) const { redisFree(connection); }
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

struct Address {
  std::string host = "127.0.0.1";
  int port = 6379;
  std::string database = "0";
};

/// "redis://host:port/db", where all behind the host may be missing.
Address ParseUrl(std::string_view url) {
  Address address;
  url.remove_prefix(std::string_view("redis://").size());
  const size_t slash = url.find('/');
  if (slash != std::string_view::npos && slash + 1 < url.size()) {
    address.database = url.substr(slash + 1);
  }
  std::string_view host = url.substr(0, slash);
  const size_t colon = host.rfind(':');
  int64_t port = 0;
  if (colon != std::string_view::npos && host.find(']', colon) == std::string_view::npos) {
    if (ParseInt64Prefix(host.substr(colon + 1), port) && port > 0 && port < 65536) {
      address.port = static_cast<int>(port);
    }
    host = host.substr(0, colon);
  }
  if (host.size() > 1 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  if (!host.empty()) address.host = host;
  return address;
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
  return stored.append(text != nullptr ? *text : std::to_string(std::get<int64_t>(value)));
}

bool Decode(std::string_view stored, StoreValue& value) {
  if (stored.empty()) return false;
  const std::string_view rest = stored.substr(1);
  if (stored[0] == 't') {
    value = std::string(rest);
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
  explicit RedisBackend(const std::string& url) : address_(ParseUrl(url)) {}

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
        buckets.push_back(name.substr(kNamespace.size()));
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
      Reply reply = Exchange(commands);
      if (connection_->err == REDIS_OK) return reply;
      fault = connection_->errstr;
      connection_.reset();
    }
    Pause();
    return nullptr;
  }

  Reply Exchange(const std::vector<Command>& commands) {
    for (const Command& command : commands) {
      std::vector<const char*> parts;
      std::vector<size_t> sizes;
      for (const std::string& part : command) {
        parts.push_back(part.data());
        sizes.push_back(part.size());
      }
      redisAppendCommandArgv(connection_.get(), static_cast<int>(parts.size()), parts.data(),
                             sizes.data());
    }
    Reply last;
    std::string refusal;
    for (size_t i = 0; i < commands.size(); ++i) {
      void* raw = nullptr;
      if (redisGetReply(connection_.get(), &raw) != REDIS_OK) return nullptr;
      last.reset(static_cast<redisReply*>(raw));
      if (refusal.empty()) refusal = RefusalIn(*last);
    }
    if (refusal.empty()) {
      fault.clear();
      return last;
    }
    fault = refusal;
    return nullptr;
  }

  bool Connect() {
    if (connection_ != nullptr) return true;
    if (MonotonicNanoseconds() < notBefore_) {
      fault = "the server did not answer a moment ago";
      return false;
    }
    connection_.reset(redisConnectWithTimeout(address_.host.c_str(), address_.port, kConnectTime));
    if (connection_ == nullptr || connection_->err != REDIS_OK) {
      fault = connection_ != nullptr ? connection_->errstr : "out of memory";
    } else {
      redisSetTimeout(connection_.get(), kReplyTime);
      if (Exchange({{"SELECT", address_.database}})) return true;
      if (connection_->err != REDIS_OK) fault = connection_->errstr;
    }
    connection_.reset();
    Pause();
    return false;
  }

  /// A script with many session variables must not wait for a dead server once for each of them.
  void Pause() { notBefore_ = MonotonicNanoseconds() + kPauseNanoseconds; }

  Address address_;
  std::unique_ptr<redisContext, FreeConnection> connection_;
  uint64_t notBefore_ = 0;
};

}  // namespace

std::shared_ptr<StoreBackend> MakeRedisBackend(const std::string& url) {
  return std::make_shared<RedisBackend>(url);
}

}  // namespace kel
