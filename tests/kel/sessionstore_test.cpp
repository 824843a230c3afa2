#include "kel/sessionstore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>

#include "kel/redisserver.h"
#include "kel/tempdir.h"
#include "kel/testserver.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Store = std::shared_ptr<SessionStore>;

/// What any kind of store keeps to; the parameter says which kind.
class AnyStore : public TempDirTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    spec_ = "sessions";
    if (GetParam() == std::string_view("server")) {
      server_ = std::make_unique<RedisServer>();
      ASSERT_TRUE(server_->IsUp());
      spec_ = server_->Url();
    }
    store_ = kel::OpenSessionStore(spec_);
  }

  std::unique_ptr<RedisServer> server_;
  std::string spec_;
  Store store_;
};

TEST_P(AnyStore, KeepsNumbersAndTextsOfAnyBytes) {
  std::string bytes("\0a'\"\xFF\r\n", 7);
  for (int c = 0; c < 256; ++c) bytes += static_cast<char>(c);
  EXPECT_TRUE(store_->SetInteger("session/7/", 4294967295));
  EXPECT_TRUE(store_->SetInteger("session/7/low", INT64_MIN));
  EXPECT_TRUE(store_->SetText("session/7/bytes", bytes));
  EXPECT_TRUE(store_->SetText("session/7/empty", ""));
  EXPECT_TRUE(store_->SetText("session/7/text", "old"));
  EXPECT_TRUE(store_->SetText("session/7/text", "new"));

  const Store other = kel::OpenSessionStore(spec_);
  int64_t number = 0;
  std::string text = "untouched";
  EXPECT_TRUE(other->GetInteger("session/7/", number));
  EXPECT_EQ(number, 4294967295);
  EXPECT_TRUE(other->GetInteger("session/7/low", number));
  EXPECT_EQ(number, INT64_MIN);
  EXPECT_FALSE(other->GetText("session/7/low", text)) << "a number is no text";
  EXPECT_FALSE(other->GetText("session/7/absent", text));
  EXPECT_EQ(text, "untouched");
  EXPECT_FALSE(other->GetInteger("session/7/text", number)) << "a text is no number";
  EXPECT_EQ(number, INT64_MIN);
  EXPECT_TRUE(other->GetText("session/7/bytes", text));
  EXPECT_EQ(text, bytes);
  EXPECT_TRUE(other->GetText("session/7/empty", text));
  EXPECT_EQ(text, "");
  EXPECT_TRUE(other->GetText("session/7/text", text));
  EXPECT_EQ(text, "new");
  EXPECT_EQ(other->TakeFault(), "");
}

TEST_P(AnyStore, TreesAreKeptApart) {
  for (const char* id : {"1", "10", "11", "2"}) {
    store_->SetInteger(std::string("session/") + id + "/", 5);
    store_->SetText(std::string("session/") + id + "/name", id);
    store_->SetText(std::string("session/") + id + "/a[x]*/deep", id);
  }
  EXPECT_THAT(store_->SubKeys("session/1/"),
              ElementsAre("session/1/", "session/1/a[x]*/deep", "session/1/name"));
  EXPECT_THAT(store_->SubKeys("session/1/n"), ElementsAre("session/1/name"));
  EXPECT_THAT(store_->Children("session/"),
              ElementsAre("session/1/", "session/10/", "session/11/", "session/2/"));
  EXPECT_THAT(store_->Children("session/10/"), ElementsAre("session/10/a[x]*/", "session/10/name"));
  EXPECT_EQ(store_->SubKeys("").size(), 12u);

  EXPECT_TRUE(store_->DeleteTree("session/1/"));
  EXPECT_FALSE(store_->Exists("session/1/"));
  EXPECT_TRUE(store_->Exists("session/10/"));
  EXPECT_TRUE(store_->DeleteTree("session/10/a[x]*/"));
  EXPECT_THAT(store_->SubKeys("session/10/"), ElementsAre("session/10/", "session/10/name"));
  EXPECT_TRUE(store_->DeleteTree("session/1"));
  EXPECT_THAT(store_->Children("session/"), ElementsAre("session/2/"));
  EXPECT_TRUE(store_->DeleteTree("absent/"));
}

TEST_P(AnyStore, ABatchTakesEffectAtItsEnd) {
  store_->SetText("session/3/old", "x");
  const Store other = kel::OpenSessionStore(spec_);
  store_->Begin();
  store_->DeleteTree("session/3/");
  store_->SetInteger("session/3/", 9);
  store_->SetText("session/3/a", "1");
  store_->SetText("session/4/a", "2");
  EXPECT_THAT(other->SubKeys(""), ElementsAre("session/3/old"));
  EXPECT_TRUE(store_->Commit());
  EXPECT_THAT(other->SubKeys(""), ElementsAre("session/3/", "session/3/a", "session/4/a"));
  EXPECT_TRUE(store_->Commit()) << "nothing is left to be done";
}

INSTANTIATE_TEST_SUITE_P(Kinds, AnyStore, testing::Values("file", "server"),
                         [](const auto& kind) { return std::string(kind.param); });

class FileStore : public TempDirTest {
 protected:
  /// Nothing works, something was said about it, and the file is as it was.
  static void ExpectUseless(const std::string& path) {
    const bool present = std::filesystem::is_regular_file(path);
    const std::string before = present ? Get(path) : "";
    const Store store = kel::OpenSessionStore(path);
    std::string text;
    EXPECT_FALSE(store->GetText("session/1/a", text));
    EXPECT_THAT(store->SubKeys("session/"), IsEmpty());
    EXPECT_FALSE(store->SetInteger("session/1/", 1)) << path;
    EXPECT_FALSE(store->DeleteTree("session/")) << path;
    EXPECT_NE(store->TakeFault(), "") << path;
    if (present) {
      EXPECT_EQ(Get(path), before) << path;
    }
  }

  static std::string SomeStore() {
    const Store store = kel::OpenSessionStore("good");
    for (int i = 0; i < 2000; ++i) {
      store->SetText("session/" + std::to_string(i) + "/name", std::string(200, 'x'));
    }
    sqlite3* database = nullptr;  // brings all into the one file
    sqlite3_open("good", &database);
    sqlite3_exec(database, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr);
    sqlite3_close(database);
    return Get("good");
  }
};

TEST_F(FileStore, LookingLeavesNoFileBehind) {
  const Store store = kel::OpenSessionStore("none");
  EXPECT_FALSE(store->Exists("session/1/"));
  EXPECT_THAT(store->Children("session/"), IsEmpty());
  EXPECT_EQ(store->TakeFault(), "");
  EXPECT_TRUE(std::filesystem::is_empty("."));
}

TEST_F(FileStore, LeavesAloneWhatIsNoStore) {
  Put("text", "[TamberDebug]\nProcedureTrace=1\n");
  Put("zeros", std::string(8192, '\0'));
  std::filesystem::create_directory("dir");
  ::mkfifo("pipe", 0600);
  sqlite3* database = nullptr;
  sqlite3_open("foreign", &database);
  sqlite3_exec(database, "CREATE TABLE store (key, value)", nullptr, nullptr, nullptr);
  sqlite3_close(database);
  for (const char* path : {"text", "zeros", "dir", "pipe", "foreign", "no/such/dir"}) {
    ExpectUseless(path);
  }
}

TEST_F(FileStore, SurvivesDamage) {
  const std::string good = SomeStore();
  Put("short", good.substr(0, good.size() / 2));
  Put("header", good.substr(0, 50));
  for (const char* path : {"short", "header"}) ExpectUseless(path);
  std::mt19937 random(1);
  for (int round = 0; round < 40; ++round) {
    std::string bad = good;
    for (int i = 0; i < 300; ++i) bad[random() % bad.size()] = static_cast<char>(random());
    const std::string path = "bad" + std::to_string(round);
    Put(path, bad);
    const Store store = kel::OpenSessionStore(path);
    std::string text;
    store->SubKeys("session/");
    store->Children("session/");
    for (int i = 0; i < 2000; i += 97)
      store->GetText("session/" + std::to_string(i) + "/name", text);
    store->SetText("session/5/name", "y");
    store->DeleteTree("session/77/");
  }
}

class ServerStore : public TempDirTest {};

TEST_F(ServerStore, ConnectsAgainOnceAndIsSilentWithoutServer) {
  RedisServer server;
  ASSERT_TRUE(server.IsUp());
  const Store store = kel::OpenSessionStore(server.Url());
  EXPECT_TRUE(store->SetText("session/1/a", "x"));
  server.Stop();
  server.Start();
  EXPECT_TRUE(store->SetText("session/1/a", "y")) << "the old connection is dead, a new one is not";
  server.Stop();
  std::string text;
  EXPECT_FALSE(store->GetText("session/1/a", text));
  EXPECT_NE(store->TakeFault(), "");
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 1000; ++i) EXPECT_FALSE(store->SetInteger("session/1/", i));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_THAT(store->Children("session/"), IsEmpty());
}

TEST_F(ServerStore, DropsNamesThatWereNotAskedFor) {
  const TestServer server("replies.py", {"+OK\r\n", "*2\r\n$1\r\n0\r\n*1\r\n$1\r\nx\r\n"});
  const Store store = kel::OpenSessionStore("redis://127.0.0.1:" + server.Port());
  EXPECT_THAT(store->Children("session/"), IsEmpty());
  EXPECT_EQ(store->TakeFault(), "");
}

TEST_F(ServerStore, ChecksWhoIsThere) {
  // An authority of our own, a certificate by it for the server, and one for us.
  ASSERT_EQ(std::system("exec >/dev/null 2>&1; "
                        "openssl req -x509 -newkey rsa:2048 -nodes -keyout ca.key -out ca.pem "
                        "-subj /CN=authority -days 2 && for n in server client; do "
                        "openssl req -newkey rsa:2048 -nodes -keyout $n.key -out $n.req "
                        "-subj /CN=$n && printf subjectAltName=IP:127.0.0.1 > $n.ext && "
                        "openssl x509 -req -in $n.req -CA ca.pem -CAkey ca.key -CAcreateserial "
                        "-out $n.pem -days 2 -extfile $n.ext || exit; done"),
            0);
  RedisServer server({"--tls-cert-file", "server.pem", "--tls-key-file", "server.key",
                      "--tls-ca-cert-file", "ca.pem", "--user", "default", "off", "--user", "ann",
                      "on", ">p@ss/word", "~tamber:*", "+@all"},
                     true);
  ASSERT_TRUE(server.IsUp());
  kel::StoreAccess access{"ann", "p@ss/word", "ca.pem", "client.pem", "client.key", false, 2000};
  const std::string big(300000, 'x');
  EXPECT_TRUE(kel::OpenSessionStore(server.Url(), access)->SetText("session/1/a", big));
  access.user = access.password = "";
  const Store store = kel::OpenSessionStore(server.Url("ann:p%40ss/word@"), access);
  std::string text;
  EXPECT_TRUE(store->GetText("session/1/a", text)) << store->TakeFault();
  EXPECT_EQ(text, big);

  const auto fault = [&](const std::string& url, const kel::StoreAccess& with) {
    const Store refused = kel::OpenSessionStore(url, with);
    EXPECT_FALSE(refused->SetText("session/1/a", "z"));
    return refused->TakeFault();
  };
  EXPECT_THAT(fault(server.Url("ann:secret@"), access), testing::StartsWith("WRONGPASS"));
  EXPECT_THAT(fault(server.Url(), access), testing::StartsWith("NOAUTH"));
  EXPECT_THAT(fault("redis" + server.Url("ann:p%40ss/word@").substr(6), access), Not(IsEmpty()));
  kel::StoreAccess foreign = access;
  foreign.caFile = "";
  EXPECT_THAT(fault(server.Url("ann:p%40ss/word@"), foreign), testing::HasSubstr("certificate"));
  EXPECT_TRUE(store->GetText("session/1/a", text));
  EXPECT_EQ(text, big);
}

TEST(StoreAddress, ThatNamesNoServerIsAnError) {
  for (const char* address :
       {"mongodb://a", "https://u:secret@a", "redis://u:secret@a:b/0", "redis://u:secret@a:70000",
        "rediss://u:secret@a b/0", "my.store://u:secret@a", "redis://a:1?p=secret",
        "mysql:u:secret@a", "redis:u:secret", "redis://u:secret"}) {
    const Store store = kel::OpenSessionStore(address);
    EXPECT_FALSE(store->SetText("session/1/a", "x"));
    EXPECT_THAT(store->TakeFault(), testing::ContainsRegex("unknown kind|bad port|bad host"));
    EXPECT_THAT(kel::ShownStoreAddress(address), Not(testing::HasSubstr("secret")));
  }
  EXPECT_FALSE(std::filesystem::exists("mongodb:"));
  for (const char* file : {"C:sessions", "./redis:x", "my file: sessions", "sessions"})
    EXPECT_FALSE(kel::IsStoreAddress(file)) << file;
}

}  // namespace
