#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "kel/clock.h"
#include "kel/descriptor.h"
#include "kel/file.h"
#include "kel/filepolicy.h"
#include "kel/lazylibrary.h"
#include "kel/sleep.h"
#include "kel/stop.h"
#include "kel/storebackend.h"

namespace kel {
namespace {

LazyLibrary sqlite(KEL_SONAME_SQLITE3);
KEL_LAZY(sqlite, sqlite3_open_v2);
KEL_LAZY(sqlite, sqlite3_close_v2);
KEL_LAZY(sqlite, sqlite3_extended_result_codes);
KEL_LAZY(sqlite, sqlite3_busy_handler);
KEL_LAZY(sqlite, sqlite3_db_config);
KEL_LAZY(sqlite, sqlite3_prepare_v2);
KEL_LAZY(sqlite, sqlite3_prepare_v3);
KEL_LAZY(sqlite, sqlite3_bind_blob64);
KEL_LAZY(sqlite, sqlite3_bind_int64);
KEL_LAZY(sqlite, sqlite3_clear_bindings);
KEL_LAZY(sqlite, sqlite3_step);
KEL_LAZY(sqlite, sqlite3_reset);
KEL_LAZY(sqlite, sqlite3_finalize);
KEL_LAZY(sqlite, sqlite3_column_type);
KEL_LAZY(sqlite, sqlite3_column_int64);
KEL_LAZY(sqlite, sqlite3_column_blob);
KEL_LAZY(sqlite, sqlite3_column_bytes);
KEL_LAZY(sqlite, sqlite3_exec);
KEL_LAZY(sqlite, sqlite3_errcode);
KEL_LAZY(sqlite, sqlite3_errmsg);

constexpr int64_t kApplicationId = 0x546D6253;  // "TmbS" in the file's header

struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
};
struct FinalizeStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

/// A prepared statement at work: unbound and rewound at the end of its use.
class Query {
 public:
  explicit Query(sqlite3_stmt* statement) : statement_(statement) {}
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;
  ~Query() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }

  void Bind(int at, std::string_view bytes) {
    // A null pointer would bind NULL, not the empty text.
    sqlite3_bind_blob64(statement_, at, bytes.empty() ? "" : bytes.data(), bytes.size(),
                        SQLITE_STATIC);
  }
  void Bind(int at, int64_t value) { sqlite3_bind_int64(statement_, at, value); }
  int Step() { return sqlite3_step(statement_); }
  bool Run() { return Step() == SQLITE_DONE; }
  int Type(int column) { return sqlite3_column_type(statement_, column); }
  int64_t Integer(int column) { return sqlite3_column_int64(statement_, column); }
  StoreValue Value(int column) {
    if (Type(column) == SQLITE_INTEGER) return Integer(column);
    return Bytes(column);
  }
  std::string Bytes(int column) {
    const void* bytes = sqlite3_column_blob(statement_, column);
    const auto size = static_cast<size_t>(sqlite3_column_bytes(statement_, column));
    return bytes != nullptr ? std::string(static_cast<const char*>(bytes), size) : std::string();
  }

 private:
  sqlite3_stmt* statement_;
};

/// One file, one connection. The connection is made at the first use and the file at the first
/// change, so that a store that is only looked at leaves nothing behind.
class SqliteBackend final : public StoreBackend {
 public:
  SqliteBackend(std::string path, const StoreAccess& access)
      : path_(std::move(path)), access_(access) {}

  bool Get(std::string_view key, StoreValue& value) override {
    if (!Open(false)) return false;
    Query query(get_.get());
    query.Bind(1, key);
    const int status = query.Step();
    if (status != SQLITE_ROW) return status == SQLITE_DONE ? false : Fail();
    value = query.Value(0);
    return true;
  }

  bool Tree(std::string_view prefix, StoreTree& tree) override {
    const std::string end = EndOfPrefix(prefix);
    if (end.empty()) return false;
    if (!Open(false)) return fault.empty();
    Query query(tree_.get());
    query.Bind(1, prefix);
    query.Bind(2, end);
    int status = query.Step();
    for (; status == SQLITE_ROW; status = query.Step()) {
      CheckStop();
      tree.emplace_hint(tree.end(), query.Bytes(0), query.Value(1));
    }
    return status == SQLITE_DONE || Fail();
  }

  bool Apply(std::span<const StoreChange> changes) override {
    if (!Open(true)) return false;
    if (changes.size() == 1) return ApplyOne(changes[0]) || Fail();
    if (!Execute("BEGIN IMMEDIATE")) {
      CheckStop();
      return Fail();
    }
    for (const StoreChange& change : changes) {
      if (IsStopRequested()) {
        Execute("ROLLBACK");
        throw Interrupted();
      }
      if (!ApplyOne(change)) return FailAndRollBack();
    }
    return Execute("COMMIT") || FailAndRollBack();
  }

  std::vector<std::string> Keys(std::string_view prefix) override {
    std::vector<std::string> keys;
    if (!Open(false)) return keys;
    const std::string end = EndOfPrefix(prefix);
    Query query(end.empty() ? keysToEnd_.get() : keys_.get());
    query.Bind(1, prefix);
    if (!end.empty()) query.Bind(2, end);
    int status = query.Step();
    for (; status == SQLITE_ROW; status = query.Step()) keys.push_back(query.Bytes(0));
    if (status != SQLITE_DONE) Fail();
    return keys;
  }

  /// Looks up the first key of each child, not all that lie below it.
  std::vector<std::string> Children(std::string_view prefix) override {
    std::vector<std::string> children;
    if (!Open(false)) return children;
    std::string from(prefix);
    from.push_back('\0');
    for (std::string key; FirstFrom(from, key) && key.starts_with(prefix);) {
      const size_t end = key.find('/', prefix.size());
      if (end != std::string::npos) key.resize(end + 1);
      from = key.back() == '/' ? EndOfPrefix(key) : key + '\0';
      children.push_back(std::move(key));
      key.clear();
    }
    return children;
  }

  /// The last connection of all processes takes the journal's files along.
  void Close() override { Forget(); }

  bool IsCurrent() const override {
    if (refused_) return false;
    if (database_ == nullptr) return true;
    FileStamp stamp;
    return GetFileStamp(path_, stamp) && stamp.device == device_ && stamp.inode == inode_;
  }

 private:
  bool Open(bool create) {
    if (access_.isRefused) return Refuse("the host's file policy refuses it");
    if (refused_) return Refuse("the file is damaged or is no session store");
    if (database_ != nullptr) return true;
    struct stat info {};
    std::string name;
    const Descriptor dir = OpenDirectory(name);
    const int links = access_.followsLinks ? 0 : AT_SYMLINK_NOFOLLOW;
    const bool present = dir.IsOpen() && ::fstatat(dir.Get(), name.c_str(), &info, links) == 0;
    // Whatever hides a file is no sign that there is none: its sessions would be overwritten.
    if (!present && !IsMissing(dir, name)) return Refuse("the file cannot be reached");
    if (!present && !create) return false;
    if (present && !S_ISREG(info.st_mode)) return Refuse("the path does not name a file");
    if (!present) MakeFile(dir, name);
    if (!Connect(create) || !Prepare()) {
      Forget();
      return false;
    }
    FileStamp stamp;
    if (GetFileStamp(path_, stamp)) {
      device_ = stamp.device;
      inode_ = stamp.inode;
    }
    return true;
  }

  Descriptor OpenDirectory(std::string& name) const {
    constexpr int kFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    const size_t begin = path_.rfind('/') + 1;
    if (access_.followsLinks) {
      name = path_.substr(begin);
      return Descriptor(::open(begin == 0 ? "." : path_.substr(0, begin).c_str(), kFlags));
    }
    const Descriptor top(::open("/", kFlags));
    return OpenParent(top.Get(), std::string_view(path_).substr(1), name);
  }

  /// Whether the directory is there and nothing in it has the name.
  static bool IsMissing(const Descriptor& dir, const std::string& name) {
    struct stat info {};
    return dir.IsOpen() && ::fstatat(dir.Get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 &&
           errno == ENOENT;
  }

  /// Sessions are nobody's business but the owner's; the journal's files take over who may read.
  /// What fails here, fails again when the file is opened.
  static void MakeFile(const Descriptor& dir, const std::string& name) {
    const Descriptor file(
        ::openat(dir.Get(), name.c_str(),
                 O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600));
  }

  bool Connect(bool create) {
    sqlite3* database = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX |
                      (create ? SQLITE_OPEN_CREATE : 0) |
                      (access_.followsLinks ? 0 : SQLITE_OPEN_NOFOLLOW);
    const int status = sqlite3_open_v2(path_.c_str(), &database, flags, nullptr);
    database_.reset(database);
    if (status != SQLITE_OK) return Fail();
    sqlite3_extended_result_codes(database, 1);
    sqlite3_busy_handler(database, &SqliteBackend::Wait, this);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    Execute("PRAGMA cell_size_check=ON");
    if (!IsStore() && !(create && MakeStore())) return fault.empty() ? false : Fail();
    UseWal();
    return true;
  }

  /// Called while somebody else has the file, with how often before; 0 gives up.
  static int Wait(void* self, int times) {
    auto& backend = *static_cast<SqliteBackend*>(self);
    const uint64_t now = MonotonicNanoseconds();
    if (times == 0) backend.waitsSince_ = now;
    const auto longest = static_cast<uint64_t>(backend.access_.milliseconds) * 1'000'000;
    if (IsStopRequested() || now - backend.waitsSince_ >= longest) return 0;
    constexpr int kMostMilliseconds = 10;
    SleepFor(std::min(times + 1, kMostMilliseconds), nullptr);
    return 1;
  }

  int64_t Number(const char* sql) {
    sqlite3_stmt* raw = nullptr;
    if (sqlite3_prepare_v2(database_.get(), sql, -1, &raw, nullptr) != SQLITE_OK) return -1;
    const Statement owner(raw);
    Query query(raw);
    return query.Step() == SQLITE_ROW ? query.Integer(0) : -1;
  }

  bool IsStore() {
    const int64_t id = Number("PRAGMA application_id");
    if (id == kApplicationId) return true;
    fault.clear();
    if (id != 0 || Number("SELECT count(*) FROM sqlite_master") != 0) {
      refused_ = !IsBusy();
      return Fail();
    }
    return false;
  }

  /// Only ever in an empty database: whatever else stands in the file is somebody's.
  bool MakeStore() {
    if (refused_ || !fault.empty()) return false;
    if (!Execute("BEGIN IMMEDIATE")) return Fail();
    if (IsStore()) return Execute("COMMIT");  // another process was faster
    if (!fault.empty() ||
        !Execute("CREATE TABLE store (key BLOB PRIMARY KEY NOT NULL, value) WITHOUT ROWID") ||
        !Execute("PRAGMA application_id=0x546D6253")) {
      return FailAndRollBack();
    }
    return Execute("COMMIT") || FailAndRollBack();
  }

  /// The change of the journal needs the file for itself for a moment. Whoever misses it goes on
  /// with the journal that the file has; all work on it stays correct.
  void UseWal() {
    for (int attempt = 0; attempt < 10; ++attempt) {
      if (Execute("PRAGMA journal_mode=WAL") || !IsBusy()) break;
      SleepFor(5, nullptr);
    }
    // A killed process loses nothing this way; a machine that loses power may lose the last
    // moments, never older or half sessions.
    Execute("PRAGMA synchronous=NORMAL");
  }

  bool Prepare() {
    return Prepare(get_, "SELECT value FROM store WHERE key=?1") &&
           Prepare(set_, "INSERT OR REPLACE INTO store VALUES(?1,?2)") &&
           Prepare(tree_, "SELECT key,value FROM store WHERE key>=?1 AND key<?2 ORDER BY key") &&
           Prepare(keys_, "SELECT key FROM store WHERE key>=?1 AND key<?2 ORDER BY key") &&
           Prepare(keysToEnd_, "SELECT key FROM store WHERE key>=?1 ORDER BY key") &&
           Prepare(first_, "SELECT key FROM store WHERE key>=?1 ORDER BY key LIMIT 1") &&
           Prepare(remove_, "DELETE FROM store WHERE key>=?1 AND key<?2") &&
           Prepare(removeToEnd_, "DELETE FROM store WHERE key>=?1");
  }

  bool Prepare(Statement& slot, const char* sql) {
    sqlite3_stmt* raw = nullptr;
    const int status =
        sqlite3_prepare_v3(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &raw, nullptr);
    slot.reset(raw);
    return status == SQLITE_OK || Fail();
  }

  bool ApplyOne(const StoreChange& change) {
    if (change.kind == StoreChange::Kind::DeleteTree) {
      const std::string end = EndOfPrefix(change.key);
      Query query(end.empty() ? removeToEnd_.get() : remove_.get());
      query.Bind(1, std::string_view(change.key));
      if (!end.empty()) query.Bind(2, std::string_view(end));
      return query.Run();
    }
    Query query(set_.get());
    query.Bind(1, std::string_view(change.key));
    std::visit(
        [&query](const auto& value) {
          if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::string>) {
            query.Bind(2, std::string_view(value));
          } else {
            query.Bind(2, value);
          }
        },
        change.value);
    return query.Run();
  }

  bool FirstFrom(std::string_view from, std::string& key) {
    if (from.empty()) return false;
    Query query(first_.get());
    query.Bind(1, from);
    const int status = query.Step();
    if (status == SQLITE_ROW) key = query.Bytes(0);
    return status == SQLITE_ROW || (status != SQLITE_DONE && Fail());
  }

  bool Execute(const char* sql) {
    return sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
  }

  bool IsBusy() const {
    // The extended codes say in their upper bytes what it is that is busy.
    const int status = sqlite3_errcode(database_.get()) & 0xFF;
    return status == SQLITE_BUSY || status == SQLITE_LOCKED || status == SQLITE_CANTOPEN;
  }

  /// Notes why; a file that turns out to be damaged is not touched again by this process.
  bool Fail() {
    if (!fault.empty()) return false;
    const int status = sqlite3_errcode(database_.get()) & 0xFF;
    fault = sqlite3_errmsg(database_.get());
    if (status == SQLITE_OK) fault = "the file is no session store";
    if (status == SQLITE_CORRUPT || status == SQLITE_NOTADB) refused_ = true;
    return false;
  }

  bool FailAndRollBack() {
    Fail();
    Execute("ROLLBACK");
    return false;
  }

  bool Refuse(const char* why) {
    fault = why;
    return false;
  }

  void Forget() {
    for (Statement* statement :
         {&get_, &set_, &tree_, &keys_, &keysToEnd_, &first_, &remove_, &removeToEnd_}) {
      statement->reset();
    }
    database_.reset();
  }

  std::string path_;
  const StoreAccess access_;
  std::unique_ptr<sqlite3, CloseDatabase> database_;
  Statement get_, set_, tree_, keys_, keysToEnd_, first_, remove_, removeToEnd_;
  uint64_t waitsSince_ = 0;
  uint64_t device_ = 0;
  uint64_t inode_ = 0;
  bool refused_ = false;
};

}  // namespace

std::shared_ptr<StoreBackend> MakeSqliteBackend(const std::string& path,
                                                const StoreAccess& access) {
  return std::make_shared<SqliteBackend>(path, access);
}

}  // namespace kel
