#include <gtest/gtest.h>

#include <chrono>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "tamber_c.h"

namespace {

void Collect(const char* text, size_t length, void* user) {
  static_cast<std::string*>(user)->append(text, length);
}

class CInterfaceTest : public ::testing::Test {
 protected:
  CInterfaceTest() : context_(tamber_new()) { tamber_set_output(context_, Collect, &output_); }
  ~CInterfaceTest() override { tamber_free(context_); }
  int Compile(const std::string& script) {
    return tamber_compile_text(context_, "test", script.data(), script.size());
  }
  tamber_error Error() {
    tamber_error error;
    EXPECT_EQ(tamber_get_error(context_, &error), TAMBER_OK);
    return error;
  }

  tamber_context* context_;
  std::string output_;
};

TEST_F(CInterfaceTest, ErrorsHaveNotes) {
  ASSERT_EQ(Compile("int count = conut\nconst int count = 2\n"), TAMBER_FAILED);
  ASSERT_EQ(Error().notes, 1U);
  tamber_note note;
  ASSERT_EQ(tamber_get_note(context_, 0, &note), TAMBER_OK);
  EXPECT_EQ(note.is_hint, 0);
  ASSERT_EQ(Compile("int count\nproc Run()\n  Print(cuont)\nendproc\n"), TAMBER_FAILED);
  ASSERT_EQ(tamber_get_note(context_, Error().notes - 1, &note), TAMBER_OK);
  EXPECT_EQ(note.is_hint, 1);
  EXPECT_STREQ(note.text, "did you mean \"count\"?");
  EXPECT_EQ(tamber_get_note(context_, Error().notes, &note), TAMBER_NOT_FOUND);
  EXPECT_EQ(tamber_get_note(context_, 0, nullptr), TAMBER_BAD_ARGUMENT);
  ASSERT_EQ(Compile("proc Late()\nendproc\n"), TAMBER_OK);
  EXPECT_EQ(tamber_get_note(context_, 0, &note), TAMBER_NOT_FOUND) << "there is no error any more";
  tamber_run(context_, "Lat");
  ASSERT_EQ(tamber_get_note(context_, 0, &note), TAMBER_OK);
  EXPECT_STREQ(note.text, "did you mean \"Late\"?");
  ASSERT_EQ(Compile("string word\nproc Take(bool b, int & n)\nendproc\n"), TAMBER_OK);
  tamber_push_bool(context_, 1);
  tamber_push_global(context_, "word");
  EXPECT_NE(tamber_run(context_, "Take"), TAMBER_OK);
  ASSERT_EQ(tamber_get_note(context_, 0, &note), TAMBER_OK);
  EXPECT_STREQ(note.text, "argument 2 is of type string, the parameter is integer &n");
}

TEST_F(CInterfaceTest, ValuesGoInAndComeOut) {
  ASSERT_EQ(Compile("int total = 3\nconst string NAME = \"n\"\nstring text\nint[] list\n"
                    "string Join(string a, int n, double d, bool b)\n"
                    "  Print(\"run\")\n  text = a\n  return a + n + d + b\nendproc\n"
                    "proc Nothing()\nendproc\n"),
            TAMBER_OK);
  tamber_push_text(context_, "a\0b", 3);
  tamber_push_int(context_, -7);
  tamber_push_double(context_, 0.5);
  tamber_push_bool(context_, 2);
  ASSERT_EQ(tamber_run(context_, "join"), TAMBER_OK);
  EXPECT_EQ(output_, "run");
  const char* text = nullptr;
  size_t length = 0;
  ASSERT_EQ(tamber_result_text(context_, &text, &length), TAMBER_OK);
  EXPECT_EQ(std::string(text, length).substr(0, 5), std::string("a\0b-7", 5));
  int32_t number = 0;
  EXPECT_EQ(tamber_result_int(context_, &number), TAMBER_WRONG_TYPE);
  EXPECT_EQ(tamber_get_int(context_, "Total", &number), TAMBER_OK);
  EXPECT_EQ(number, 3);
  EXPECT_EQ(tamber_set_double(context_, "total", 9.75), TAMBER_OK);
  EXPECT_EQ(tamber_get_int(context_, "total", &number), TAMBER_OK);
  EXPECT_EQ(number, 9) << "assigned as in a script";
  EXPECT_EQ(tamber_set_text(context_, "total", "x", 1), TAMBER_WRONG_TYPE);
  EXPECT_EQ(tamber_set_text(context_, "NAME", "x", 1), TAMBER_NOT_FOUND) << "a constant";
  EXPECT_EQ(tamber_get_text(context_, "text", &text, &length), TAMBER_OK);
  EXPECT_EQ(length, 3u);
  int type = 0;
  EXPECT_EQ(tamber_get_type(context_, "list", &type), TAMBER_OK);
  EXPECT_EQ(type, TAMBER_ARRAY);
  EXPECT_EQ(tamber_run(context_, "Nothing"), TAMBER_OK);
  EXPECT_EQ(tamber_result_int(context_, &number), TAMBER_NOT_FOUND) << "the old result is gone";
}

TEST_F(CInterfaceTest, StructuresAndArraysAreReachedByPath) {
  ASSERT_EQ(Compile("struct Line\n  string name\n  double[] prices\nendstruct\n"
                    "struct Order\n  Line[2] lines\n  estring key\nendstruct\n"
                    "Order order\nint[] list\n"
                    "Order Copy(Order & o, int[] numbers)\n  o.lines[2].name = \"changed\"\n"
                    "  o.lines[1].prices <<= numbers[3]\n  return o\nendproc\n"),
            TAMBER_OK);
  const int32_t numbers[] = {4, 5, 6};
  EXPECT_EQ(tamber_set_ints(context_, "list", numbers, 3), TAMBER_OK);
  EXPECT_EQ(tamber_set_int(context_, "list[2]", -5), TAMBER_OK);
  EXPECT_EQ(tamber_set_text(context_, "order.lines[1].name", "first", 5), TAMBER_OK);
  EXPECT_EQ(tamber_set_text(context_, "order.key", "k", 1), TAMBER_OK);
  EXPECT_EQ(tamber_set_size(context_, "order.lines[1].prices", 1), TAMBER_OK);
  EXPECT_EQ(tamber_push_global(context_, "order"), TAMBER_OK);
  EXPECT_EQ(tamber_push_global(context_, "list"), TAMBER_OK);
  ASSERT_EQ(tamber_run(context_, "Copy"), TAMBER_OK) << Error().text;
  const char* text = nullptr;
  EXPECT_EQ(tamber_get_text(context_, "order.lines[2].name", &text, nullptr), TAMBER_OK);
  EXPECT_STREQ(text, "changed") << "by reference";
  EXPECT_EQ(tamber_get_text(context_, "order.key", &text, nullptr), TAMBER_OK);
  EXPECT_STREQ(text, "k");
  EXPECT_EQ(tamber_get_member(context_, "order.lines[1]", 1, &text), TAMBER_OK);
  EXPECT_STREQ(text, "prices");
  ASSERT_EQ(Compile("proc Add(int & n, string & s)\n  n += 100\n  s += \"!\"\nendproc\n"),
            TAMBER_OK);
  EXPECT_EQ(tamber_push_global(context_, "list[4]"), TAMBER_NOT_FOUND);
  EXPECT_EQ(tamber_push_global(context_, "list[2]"), TAMBER_OK);
  EXPECT_EQ(tamber_push_global(context_, "order.lines[2].name"), TAMBER_OK);
  ASSERT_EQ(tamber_run(context_, "Add"), TAMBER_OK) << Error().text;
  EXPECT_EQ(tamber_get_text(context_, "order.lines[2].name", &text, nullptr), TAMBER_OK);
  EXPECT_STREQ(text, "changed!");
  tamber_push_global(context_, "order");
  tamber_push_global(context_, "list");
  ASSERT_EQ(tamber_run(context_, "Copy"), TAMBER_OK);
  int32_t copied[2] = {};
  uint32_t count = 0;
  const int32_t* borrowed = nullptr;
  EXPECT_EQ(tamber_borrow_ints(context_, "list", &borrowed, &count), TAMBER_OK);
  ASSERT_GT(count, 1u);
  EXPECT_EQ(tamber_get_int(context_, "list[2]", &copied[0]), TAMBER_OK);
  EXPECT_EQ(borrowed[1], copied[0]);
  const double* reals = nullptr;
  EXPECT_EQ(tamber_borrow_doubles(context_, "list", &reals, &count), TAMBER_WRONG_TYPE);
  EXPECT_EQ(tamber_borrow_ints(context_, "none", &borrowed, &count), TAMBER_NOT_FOUND);
  EXPECT_EQ(tamber_get_ints(context_, "list", copied, 2, &count), TAMBER_OK);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(copied[1], 95);
  EXPECT_EQ(tamber_result_size(context_, &count), TAMBER_OK);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(tamber_result_part(context_, ".lines[1].prices[2]"), TAMBER_OK);
  double price = 0;
  EXPECT_EQ(tamber_result_double(context_, &price), TAMBER_OK);
  EXPECT_EQ(price, 6);
  for (const auto& [path, status] : std::initializer_list<std::pair<const char*, int>>{
           {"order.lines[0]", TAMBER_NOT_FOUND},
           {"order.lines[3]", TAMBER_NOT_FOUND},
           {"order.lines[4294967297]", TAMBER_BAD_ARGUMENT},
           {"order.none", TAMBER_NOT_FOUND},
           {"order[1]", TAMBER_WRONG_TYPE},
           {"list[1].x", TAMBER_WRONG_TYPE},
           {"list[1", TAMBER_BAD_ARGUMENT},
           {"list[]", TAMBER_BAD_ARGUMENT},
           {"list[1]x", TAMBER_BAD_ARGUMENT},
           {"order.", TAMBER_BAD_ARGUMENT},
           {"list", TAMBER_WRONG_TYPE}}) {
    int32_t number = 0;
    EXPECT_EQ(tamber_get_int(context_, path, &number), status) << path;
    EXPECT_EQ(tamber_set_int(context_, path, 1), status) << path;
  }
}

TEST_F(CInterfaceTest, LimitsAndStopsAreTheHosts) {
  ASSERT_EQ(Compile("session int n = 1\nproc Read()\n  FileGetSize(\"/etc/passwd\")\nendproc\n"
                    "proc Inner()\n  n = 5\n  while TRUE\n  wend\nendproc\n"
                    "proc Deep()\n  Inner()\nendproc\n"),
            TAMBER_OK);
  std::string reports;
  const auto take = [](const char*, const char* text, size_t length, void* user) {
    static_cast<std::string*>(user)->append(text, length);
    return 1;
  };
  tamber_set_report(context_, take, &reports);
  EXPECT_EQ(tamber_keep_globals(context_), TAMBER_OK);
  EXPECT_EQ(tamber_run(context_, "Read"), TAMBER_OK);
  EXPECT_EQ(tamber_allow_files(context_, TAMBER_NO_ACCESS), TAMBER_OK);
  EXPECT_EQ(tamber_allow_files(context_, 3), TAMBER_BAD_ARGUMENT);
  EXPECT_EQ(tamber_allow_directory(context_, "/no such", TAMBER_READ), TAMBER_NOT_FOUND);
  EXPECT_EQ(tamber_allow_network(context_, 0), TAMBER_OK);
  EXPECT_EQ(tamber_show_process(context_, 8), TAMBER_BAD_ARGUMENT);
  EXPECT_EQ(tamber_run(context_, "Read"), TAMBER_FAILED);
  EXPECT_EQ(Error().code, 102);
  EXPECT_EQ(Error().source_line_number, 3u);
  EXPECT_NE(reports.find("Refused"), std::string::npos);
  std::thread timer([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    tamber_stop(context_);
  });
  EXPECT_EQ(tamber_run(context_, "Deep"), TAMBER_STOPPED);
  timer.join();
  tamber_frame frame;
  ASSERT_EQ(Error().frames, 2u);
  EXPECT_EQ(tamber_get_frame(context_, 1, &frame), TAMBER_OK);
  EXPECT_STREQ(frame.procedure, "Deep");
  EXPECT_EQ(frame.line, 11u);
  EXPECT_EQ(tamber_get_frame(context_, 2, &frame), TAMBER_NOT_FOUND);
  EXPECT_EQ(tamber_run(context_, "Read"), TAMBER_STOPPED);
  EXPECT_EQ(tamber_cancel_stop(context_), TAMBER_OK);
  EXPECT_EQ(tamber_run(context_, "Read"), TAMBER_FAILED);
  int32_t n = 0;
  EXPECT_EQ(tamber_get_int(context_, "n", &n), TAMBER_OK);
  EXPECT_EQ(n, 5);
  EXPECT_EQ(tamber_restore_globals(context_), TAMBER_OK);
  EXPECT_EQ(tamber_get_int(context_, "n", &n), TAMBER_OK);
  EXPECT_EQ(n, 1);
  EXPECT_EQ(tamber_save_session(context_), TAMBER_FAILED) << "there is none";
  EXPECT_EQ(tamber_reset(context_), TAMBER_OK);
  EXPECT_EQ(tamber_get_int(context_, "n", &n), TAMBER_NOT_FOUND);
}

TEST_F(CInterfaceTest, ErrorsSayWhere) {
  EXPECT_EQ(Compile("proc main()\n  bogus\nendproc\n"), TAMBER_FAILED);
  EXPECT_STREQ(Error().name, "ERR_BADSTATEMENT");
  EXPECT_EQ(Error().line, 2u);
  EXPECT_EQ(Error().column, 3u);
  EXPECT_STREQ(Error().source_line, "  bogus");
  ASSERT_EQ(Compile("proc P(int n)\n  n = n / (n - n)\nendproc\n"), TAMBER_OK);
  EXPECT_EQ(Error().code, 0);
  EXPECT_EQ(tamber_run(context_, "P"), TAMBER_FAILED);
  EXPECT_STREQ(Error().name, "ERR_PROCPARMCOUNT");
  tamber_push_int(context_, 1);
  EXPECT_EQ(tamber_run(context_, "P"), TAMBER_FAILED);
  EXPECT_STREQ(Error().name, "ERR_DIVIDEBYZERO");
  EXPECT_STREQ(Error().procedure, "P");
}

int Repeat(tamber_call* call, void* user) {
  const char* text = nullptr;
  size_t length = 0;
  int32_t times = 0;
  uint32_t count = 0;
  EXPECT_EQ(tamber_arg_count(call, &count), TAMBER_OK);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(tamber_arg_text(call, 0, &text, &length), TAMBER_OK);
  EXPECT_EQ(tamber_arg_int(call, 1, &times), TAMBER_OK);
  EXPECT_EQ(tamber_arg_int(call, 2, &times), TAMBER_BAD_ARGUMENT);
  EXPECT_EQ(tamber_arg_int(call, 0, &times), TAMBER_WRONG_TYPE);
  *static_cast<tamber_call**>(user) = call;
  if (times < 0) return tamber_raise(call, 101, "times");
  if (times == 0) return TAMBER_FAILED;
  std::string all;
  for (int32_t i = 0; i < times; ++i) all.append(text, length);
  return tamber_return_text(call, all.data(), all.size());
}

TEST_F(CInterfaceTest, FunctionsOfTheHostAreBuiltIns) {
  tamber_call* stale = nullptr;
  EXPECT_EQ(tamber_register(context_, "nonsense", Repeat, &stale), TAMBER_FAILED);
  ASSERT_EQ(tamber_register(context_, "string Repeat (string Text, int Times)", Repeat, &stale),
            TAMBER_OK);
  ASSERT_EQ(Compile("int Run(int n)\n  ErrHandler = INLINE_HANDLER\n"
                    "  Print(Repeat(\"ab\", n) + \"\\n\")\n  return ErrCode\nendproc\n"),
            TAMBER_OK);
  int32_t code = -1;
  tamber_push_int(context_, 2);
  EXPECT_EQ(tamber_run(context_, "Run"), TAMBER_OK);
  EXPECT_EQ(output_, "abab\n");
  tamber_push_int(context_, -1);
  EXPECT_EQ(tamber_run(context_, "Run"), TAMBER_OK);
  EXPECT_EQ(tamber_result_int(context_, &code), TAMBER_OK);
  EXPECT_EQ(code, 101);
  tamber_push_int(context_, 0);
  EXPECT_EQ(tamber_run(context_, "Run"), TAMBER_FAILED);
  EXPECT_STREQ(Error().detail, "Repeat");
  uint32_t count = 0;
  EXPECT_EQ(tamber_arg_count(stale, &count), TAMBER_BAD_HANDLE) << "the call has ended";
  EXPECT_EQ(tamber_register(context_, "int while (int N)", Repeat, &stale), TAMBER_FAILED);
}

TEST_F(CInterfaceTest, FunctionsOfTheHostTakeAndReturnEveryType) {
  const auto parts = [](tamber_call* call, void*) -> int {
    double d = 0;
    int32_t x = 0, second = 0;
    int type = 0;
    uint32_t size = 0;
    const char* key = nullptr;
    EXPECT_EQ(tamber_arg_double(call, 0, &d), TAMBER_OK);
    EXPECT_NE(tamber_arg_part_int(call, 0, ".x", &x), TAMBER_OK);
    EXPECT_EQ(tamber_arg_part_type(call, 1, "", &type), TAMBER_OK);
    EXPECT_EQ(type, TAMBER_CHAR);
    EXPECT_EQ(tamber_arg_part_int(call, 2, ".x", &x), TAMBER_OK);
    EXPECT_EQ(tamber_arg_part_size(call, 3, "", &size), TAMBER_OK);
    EXPECT_EQ(tamber_arg_part_int(call, 3, "[2]", &second), TAMBER_OK);
    EXPECT_EQ(tamber_arg_text(call, 4, &key, nullptr), TAMBER_OK);
    EXPECT_STREQ(key, "secret");
    EXPECT_EQ(size, 2u);
    tamber_return_text(call, "replaced", 8);
    return tamber_return_double(call, d + x + second);
  };
  const auto wrong = [](tamber_call* call, void*) { return tamber_return_text(call, "x", 1); };
  const auto nothing = [](tamber_call*, void*) -> int { return TAMBER_OK; };
  ASSERT_EQ(Compile("struct Point\n  int x\nendstruct\n"), TAMBER_OK);
  for (const auto& [prototype, function] :
       std::initializer_list<std::pair<const char*, tamber_function>>{
           {"int Parts (double D, char C, Point P, array L, estring E)", parts},
           {"int Wrong ()", wrong},
           {"estring Sealed ()", wrong},
           {"int[] None ()", nothing},
           {"string Empty ()", nothing}})
    ASSERT_EQ(tamber_register(context_, prototype, function, nullptr), TAMBER_OK)
        << prototype << Error().detail;
  ASSERT_EQ(Compile("proc Run()\n  Point p\n  int[] l\n  estring e\n  char c\n  p.x = 7\n"
                    "  l <<= 4\n  l <<= 5\n  e = \"secret\"\n"
                    "  Print(Parts(1, c, p, l, e) + Sealed() + ArrayGetSize(None()) + Empty())\n"
                    "  Print(\"\" + Wrong())\nendproc\n"),
            TAMBER_OK)
      << Error().detail << Error().line;
  EXPECT_EQ(tamber_run(context_, "Run"), TAMBER_FAILED);
  EXPECT_EQ(output_, "13x0");
  EXPECT_STREQ(Error().name, "ERR_ASSIGNMISMATCH");
  EXPECT_STREQ(Error().detail, "Wrong");
}

TEST_F(CInterfaceTest, CallbacksThatThrowAreErrorsOfTheScript) {
  const auto throws = [](tamber_call*, void*) -> int { throw std::runtime_error("no"); };
  ASSERT_EQ(tamber_register(context_, "int Throws ()", throws, nullptr), TAMBER_OK);
  ASSERT_EQ(Compile("proc P()\n  Throws()\nendproc\nproc Q()\n  Print(\"q\")\nendproc\n"),
            TAMBER_OK);
  EXPECT_EQ(tamber_run(context_, "P"), TAMBER_FAILED);
  EXPECT_STREQ(Error().detail, "Throws: no");
  const auto full = [](const char*, size_t, void*) { throw std::runtime_error("full"); };
  tamber_set_output(context_, full, nullptr);
  EXPECT_EQ(tamber_run(context_, "Q"), TAMBER_FAILED);
  EXPECT_STREQ(Error().detail, "Print: full");
  tamber_set_output(context_, Collect, &output_);
  EXPECT_EQ(tamber_run(context_, "Q"), TAMBER_OK);
  EXPECT_EQ(Error().code, 0);
  EXPECT_STREQ(Error().detail, "");
}

TEST_F(CInterfaceTest, NullAndStalePointersAreRefused) {
  tamber_context* gone = tamber_new();
  EXPECT_EQ(tamber_free(gone), TAMBER_OK);
  tamber_context* other = tamber_new();
  int32_t number = 0;
  int object = 0;
  for (tamber_context* bad :
       {static_cast<tamber_context*>(nullptr), gone, reinterpret_cast<tamber_context*>(&object)}) {
    EXPECT_EQ(tamber_free(bad), TAMBER_BAD_HANDLE);
    EXPECT_EQ(tamber_run(bad, "main"), TAMBER_BAD_HANDLE);
    EXPECT_EQ(tamber_push_int(bad, 1), TAMBER_BAD_HANDLE);
    EXPECT_EQ(tamber_get_int(bad, "ErrCode", &number), TAMBER_BAD_HANDLE);
  }
  EXPECT_EQ(tamber_get_int(other, nullptr, &number), TAMBER_BAD_ARGUMENT);
  EXPECT_EQ(tamber_get_int(other, "ErrCode", nullptr), TAMBER_BAD_ARGUMENT);
  EXPECT_EQ(tamber_compile_text(other, "x", nullptr, 1), TAMBER_BAD_ARGUMENT);
  EXPECT_EQ(tamber_run(other, nullptr), TAMBER_BAD_ARGUMENT);
  EXPECT_EQ(tamber_register(other, "int F ()", nullptr, nullptr), TAMBER_BAD_ARGUMENT);
  EXPECT_EQ(tamber_get_error(other, nullptr), TAMBER_BAD_ARGUMENT);
  EXPECT_EQ(tamber_free(other), TAMBER_OK);
}

TEST_F(CInterfaceTest, AContextFreedWhileItRunsEndsWithItsRun) {
  const auto free = [](tamber_call* call, void* user) -> int {
    tamber_free(static_cast<tamber_context*>(user));
    return tamber_return_int(call, 5);
  };
  tamber_context* context = tamber_new();
  tamber_set_output(context, Collect, &output_);
  ASSERT_EQ(tamber_register(context, "int Free ()", free, context), TAMBER_OK);
  const std::string script = "proc main()\n  Print(\"freed \" + Free())\nendproc\n";
  ASSERT_EQ(tamber_compile_text(context, "t", script.data(), script.size()), TAMBER_OK);
  EXPECT_EQ(tamber_run(context, "main"), TAMBER_OK);
  EXPECT_EQ(output_, "freed 5");
  EXPECT_EQ(tamber_run(context, "main"), TAMBER_BAD_HANDLE);
}

TEST_F(CInterfaceTest, ProgramsAreSharedByThreads) {
  tamber_program* program = nullptr;
  const auto freezes = [](tamber_call* call, void* user) -> int {
    tamber_program* refused = nullptr;
    EXPECT_EQ(tamber_freeze(static_cast<tamber_context*>(user), &refused), TAMBER_FAILED);
    return tamber_return_int(call, refused == nullptr ? 0 : 1);
  };
  ASSERT_EQ(tamber_register(context_, "int Freezes ()", freezes, context_), TAMBER_OK);
  ASSERT_EQ(Compile("int hits = 1\nint Hit(int n)\n  hits += n\n  Print(\"hit \")\n"
                    "  return hits\nendproc\nint Inside()\n  return Freezes()\nendproc\n"),
            TAMBER_OK);
  int32_t n = 0;
  EXPECT_EQ(tamber_run(context_, "Inside"), TAMBER_FAILED) << "it runs";
  EXPECT_EQ(Error().code, 102);
  EXPECT_EQ(Compile("strin late\n"), TAMBER_FAILED);
  EXPECT_EQ(tamber_freeze(context_, &program), TAMBER_FAILED) << "it has an error";
  EXPECT_EQ(program, nullptr);
  EXPECT_EQ(Compile("string late\n"), TAMBER_OK);
  ASSERT_EQ(tamber_freeze(context_, &program), TAMBER_OK);
  // What is shown goes where the prepared context's did, though that is gone.
  tamber_free(std::exchange(context_, nullptr));
  std::thread threads[4];
  std::string printed[std::size(threads)];
  tamber_context* contexts[std::size(threads)];
  for (size_t t = 0; t < std::size(threads); ++t) {
    ASSERT_EQ(tamber_new_from(program, &contexts[t]), TAMBER_OK);
    if (t > 0) tamber_set_output(contexts[t], Collect, &printed[t]);
    threads[t] = std::thread([&, t] {
      for (int round = 0; round < 50; ++round) {
        tamber_push_int(contexts[t], 2);
        EXPECT_EQ(tamber_run(contexts[t], "Hit"), TAMBER_OK);
      }
    });
  }
  EXPECT_EQ(tamber_free_program(program), TAMBER_OK);
  for (std::thread& thread : threads) thread.join();
  for (tamber_context* context : contexts) {
    EXPECT_EQ(tamber_get_int(context, "hits", &n), TAMBER_OK);
    EXPECT_EQ(n, 101);
    EXPECT_EQ(tamber_free(context), TAMBER_OK);
  }
  for (const std::string* text : {&output_, &printed[1], &printed[3]})
    EXPECT_EQ(text->size(), 200u);
  // Neither is taken for the other.
  tamber_context* none = contexts[0];
  auto* const wrong = reinterpret_cast<tamber_program*>(contexts[0]);
  for (tamber_program* bad : {static_cast<tamber_program*>(nullptr), program, wrong}) {
    EXPECT_EQ(tamber_new_from(bad, &none), TAMBER_BAD_HANDLE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(tamber_free_program(bad), TAMBER_BAD_HANDLE);
  }
  EXPECT_EQ(tamber_new_from(program, nullptr), TAMBER_BAD_ARGUMENT);
  EXPECT_EQ(tamber_freeze(nullptr, &program), TAMBER_BAD_HANDLE);
  EXPECT_EQ(tamber_freeze(nullptr, nullptr), TAMBER_BAD_ARGUMENT);
}

}  // namespace
