#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "context/contextstate.h"
#include "kel/clock.h"
#include "kel/redisserver.h"
#include "kel/sessionstore.h"
#include "kel/tempdir.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Sessions : public TempDirTest {
 protected:
  static std::shared_ptr<SessionStore> Store(const char* file = "TamberSessions") {
    return kel::OpenSessionStore(file);
  }

  TamberContext context_;
};

TEST_F(Sessions, ExpireByAge) {
  const uint32_t now = kel::UnixSeconds();
  const auto store = Store();
  store->SetInteger("session/1/", now - 100);
  store->SetText("session/1/name", "x");
  store->SetInteger("session/10/", now);
  store->SetInteger("session/11/", now - 10);
  store->SetText("session/12/name", "no stamp");
  context_.SetSessionId(2);
  context_.ExpireOldSessions(50);
  EXPECT_THAT(store->SubKeys("session/"), ElementsAre("session/10/", "session/11/", "session/2/"));
  context_.ExpireOldSessions(0);
  EXPECT_THAT(store->Children("session/"), testing::Contains("session/2/"))
      << "its stamp is of this second";
  EXPECT_FALSE(store->Exists("session/11/"));
  context_.ExpireOldSessions(now + 100);
  EXPECT_THAT(store->Children("session/"), IsEmpty()) << "a cutoff before 1970 is far ahead";
}

TEST_F(Sessions, ArraysOfEarlierVersionsAreConverted) {
  const auto store = Store();
  for (const auto& [key, value] : {std::pair("", 4), {"/1", 5}, {"/2", 6}, {"/3", 7}, {"/4", 8}})
    store->SetInteger(std::string("session/7/list") + key, value);
  const auto begin = [](TamberContext& context) {
    context.SetSessionId(7);
    context.CompileScriptBuffer("s", "session int[] list\nproc main()\nlist <<= 9\nendproc\n", 1);
    return context.GetVariable("list", VARLIST_GLOBAL)->GetElementCount();
  };
  EXPECT_EQ(begin(context_), 4u);
  context_.ResetContext();
  EXPECT_THAT(store->SubKeys("session/7/"), ElementsAre("session/7/", "session/7/list"));
  TamberContext other;
  EXPECT_EQ(begin(other), 4u);
  EXPECT_EQ(begin(context_), 4u);
  context_.RunProcedure("main", nullptr);
  context_.ResetContext();
  other.ResetContext();
  EXPECT_EQ(begin(context_), 5u) << "what another context has not changed, it does not write";
}

/// Runs one request of a host as a process that is killed right after it has saved.
std::string Request(uint32_t session) {
  int ends[2];
  EXPECT_EQ(::pipe(ends), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    TamberContext context;
    KelString output;
    context.SetOutput(&output);
    context.SetSessionId(session);
    const char* script =
        "session int n = 5\nsession string t = \"a\"\nsession double d = 1.5\nsession bool b\n"
        "session int[] list\nsession array any\nsession estring e = \"secret\"\n"
        "struct P\nstring name\nchar c\nendstruct\nsession P p\n"
        "proc main()\nPrint(n + \" \" + t + \" \" + d + \" \" + b + \" \" + ArrayGetSize(list) + "
        "ArrayGetSize(any))\n"
        "Print(\" \" + e + \" \" + p.name)\nif p.c != 0\nPrint(\"\" + p.c)\nendif\nif "
        "ArrayGetSize(any) != 0\nPrint(\" \" + any[1])\nendif\n"
        "any <<= t\nn = n + 1\nt = t + \"b\"\nd = d * 2\nb = !b\nlist += 1\n"
        "e = e + \"!\"\np.name = \"p\" + n\np.c = n + 59\nendproc\n";
    context.CompileScriptBuffer("request", script, 1);
    context.RunProcedure("main", nullptr);
    context.ResetContext();
    if (::write(ends[1], output.GetString(), output.GetLength()) < 0) ::_exit(1);
    ::kill(::getpid(), SIGKILL);
  }
  ::close(ends[1]);
  std::string text(1000, '\0');
  text.resize(static_cast<size_t>(std::max<ssize_t>(::read(ends[0], text.data(), 1000), 0)));
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
  return text;
}

TEST_F(Sessions, AreFoundAgainByTheNextRequest) {
  RedisServer server;
  ASSERT_TRUE(server.IsUp());
  for (const std::string& ini : {std::string(), "[TamberConfig]\nSessionStore=" + server.Url()}) {
    Put("tamber.ini", ini);
    EXPECT_EQ(Request(7), "5 a 1.5 FALSE 00 secret ") << ini;
    EXPECT_EQ(Request(8), "5 a 1.5 FALSE 00 secret ") << ini;
    EXPECT_EQ(Request(7), "6 ab 3 TRUE 11 secret! p6A a") << ini;
    EXPECT_EQ(Request(7), "7 abb 6 FALSE 22 secret!! p7B a") << ini;
    EXPECT_EQ(Request(0), "5 a 1.5 FALSE 00 secret ") << ini;
    TamberContext context;
    EXPECT_TRUE(context.DoesSessionExist(8));
    EXPECT_FALSE(context.DoesSessionExist(70));
    context.ExpireOldSessions(0xFFFFFFFF);
    EXPECT_FALSE(context.DoesSessionExist(8)) << "the cutoff wraps around";
  }
}

}  // namespace
