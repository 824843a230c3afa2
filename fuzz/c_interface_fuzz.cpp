// Sequences of calls of the C interface, from the host and from a function of the host that a
// script has called, with contexts, programs and calls that are there, gone, or never were.
#include <fuzzer/FuzzedDataProvider.h>

#include <array>

#include "declarations.h"
#include "harness.h"
#include "tamber_c.h"

namespace {

/// The names, paths and sources of an input: one that means something, or any bytes.
constexpr std::array kWords{"i",
                            "s",
                            "a",
                            "p",
                            "q",
                            "g",
                            "p.Name",
                            "q[1].List[2]",
                            "a[1]",
                            "p.List",
                            "t[2]",
                            "Host",
                            "Twice",
                            "Grow",
                            "Make",
                            "Get",
                            "Back",
                            "[1].X",
                            "X",
                            "own",
                            "",
                            "script.tam",
                            "int A = 1",
                            "e",
                            "TRUE",
                            "Nothing",
                            ".",
                            "int F()",
                            "Point G (Point Arg, int B)"};

class Sequence {
 public:
  explicit Sequence(FuzzedDataProvider& input) : input_(input) {}
  Sequence(const Sequence&) = delete;
  Sequence& operator=(const Sequence&) = delete;
  ~Sequence() {
    for (tamber_context* context : contexts_) tamber_free(context);
    for (tamber_program* program : programs_) tamber_free_program(program);
  }

  void Run() {
    static tamber_program* const program = [] {
      tamber_context* context = New();
      tamber_program* made = nullptr;
      if (tamber_freeze(context, &made) != TAMBER_OK) __builtin_trap();
      tamber_free(context);
      return made;
    }();
    current = this;
    tamber_new_from(program, &contexts_[0]);
    for (int step = 0; step < 40 && input_.remaining_bytes() > 0; ++step) Step(nullptr);
  }

 private:
  static constexpr const char* kHost = "int Host (int N, string S, Point P, int A[])";
  static constexpr std::string_view kScript = "int Back(int n)\nreturn Host(n, s, p, a)\nendproc\n";

  static tamber_context* New() {
    const fuzz::Playground& playground = fuzz::Playground::Get();
    tamber_context* context = tamber_new();
    tamber_set_ini(context, playground.IniPath().c_str());
    tamber_allow_files(context, TAMBER_NO_ACCESS);
    tamber_allow_directory(context, ".", TAMBER_WRITE);
    tamber_allow_network(context, 0);
    tamber_show_process(context, 0);
    tamber_set_output(
        context, [](const char*, size_t, void*) {}, nullptr);
    tamber_set_report(
        context, [](const char*, const char*, size_t, void*) { return 1; }, nullptr);
    const std::string_view declarations = fuzz::kDeclarations;
    if (tamber_compile_text(context, "declarations", declarations.data(), declarations.size()) ||
        tamber_register(context, kHost, &Called, nullptr) ||
        tamber_compile_text(context, "script", kScript.data(), kScript.size()))
      __builtin_trap();
    return context;
  }

  /// What the function of the host does with its arguments and with the context that runs.
  static int Called(tamber_call* call, void*) {
    Sequence& self = *current;
    if (self.depth_ >= 4) return TAMBER_OK;
    ++self.depth_;
    for (int steps = self.input_.ConsumeIntegralInRange(0, 4); steps > 0; --steps) self.Step(call);
    self.last_ = call;
    --self.depth_;
    return self.input_.ConsumeIntegralInRange(-1, 8);
  }

  const char* Word() {
    if (input_.ConsumeIntegralInRange(0, 3) > 0)
      return kWords[input_.ConsumeIntegralInRange<size_t>(0, kWords.size() - 1)];
    text_ = input_.ConsumeRandomLengthString(40);
    return text_.c_str();
  }

  void Step(tamber_call* call) {
    tamber_context*& context = contexts_[input_.ConsumeIntegralInRange<size_t>(0, 2)];
    tamber_program*& program = programs_[input_.ConsumeIntegralInRange<size_t>(0, 1)];
    switch (input_.ConsumeIntegralInRange(0, 4)) {
      case 0:
        Manage(context, program);
        break;
      case 1:
        ReadGlobal(context);
        break;
      case 2:
        WriteGlobal(context);
        break;
      case 3:
        RunSomething(context);
        break;
      default:
        UseCall(call != nullptr ? call : last_);
    }
  }

  void Manage(tamber_context*& context, tamber_program*& program) {
    switch (input_.ConsumeIntegralInRange(0, 11)) {
      case 0:
        if (context == nullptr) context = New();
        break;
      case 1:
        tamber_free(context);
        if (input_.ConsumeBool()) context = nullptr;
        break;
      case 2:
        tamber_free_program(program);
        program = nullptr;
        tamber_freeze(context, &program);
        break;
      case 3:
        tamber_free(context);
        tamber_new_from(program, &context);
        break;
      case 4:
        tamber_reset(context);
        break;
      case 5:
        tamber_keep_globals(context);
        break;
      case 6:
        tamber_restore_globals(context);
        break;
      case 7:
        tamber_stop(context);
        break;
      case 8:
        tamber_cancel_stop(context);
        break;
      case 9:
        tamber_register(context, Word(), &Called, nullptr);
        break;
      case 10:
        tamber_free_program(program);
        break;
      default:
        ReadError(context);
    }
  }

  static void ReadError(tamber_context* context) {
    tamber_error error{};
    if (tamber_get_error(context, &error) != TAMBER_OK) return;
    tamber_frame frame{};
    tamber_note note{};
    for (uint32_t i = 0; i <= error.frames; ++i)
      if ((tamber_get_frame(context, i, &frame) == TAMBER_OK) != (i < error.frames))
        __builtin_trap();
    for (uint32_t i = 0; i <= error.notes; ++i)
      if ((tamber_get_note(context, i, &note) == TAMBER_OK) != (i < error.notes)) __builtin_trap();
  }

  void ReadGlobal(tamber_context* context) {
    const char* word = Word();
    int type = 0;
    int32_t number = 0;
    double real = 0;
    uint32_t count = 0;
    size_t length = 0;
    const char* text = nullptr;
    const int32_t* numbers = nullptr;
    std::array<int32_t, 4> some{};
    switch (input_.ConsumeIntegralInRange(0, 7)) {
      case 0:
        tamber_get_type(context, word, &type);
        break;
      case 1:
        tamber_get_size(context, word, &count);
        break;
      case 2:
        tamber_get_member(context, word, input_.ConsumeIntegralInRange<uint32_t>(0, 5), &text);
        break;
      case 3:
        tamber_get_int(context, word, &number);
        break;
      case 4:
        tamber_get_double(context, word, &real);
        break;
      case 5:
        if (tamber_get_text(context, word, &text, &length) == TAMBER_OK && text[length] != '\0')
          __builtin_trap();
        break;
      case 6:
        tamber_get_ints(context, word, some.data(), 4, &count);
        break;
      default:
        if (tamber_borrow_ints(context, word, &numbers, &count) == TAMBER_OK)
          for (uint32_t i = 0; i < count; ++i) number ^= numbers[i];
    }
  }

  void WriteGlobal(tamber_context* context) {
    const char* word = Word();
    const std::array<int32_t, 3> some{1, 2, 3};
    switch (input_.ConsumeIntegralInRange(0, 4)) {
      case 0:
        tamber_set_int(context, word, input_.ConsumeIntegral<int32_t>());
        break;
      case 1:
        tamber_set_double(context, word, input_.ConsumeFloatingPoint<double>());
        break;
      case 2: {
        const std::string text = input_.ConsumeRandomLengthString(20);
        tamber_set_text(context, word, text.data(), text.size());
        break;
      }
      case 3:
        tamber_set_ints(context, word, some.data(), input_.ConsumeIntegralInRange<uint32_t>(0, 3));
        break;
      default:
        tamber_set_size(context, word, input_.ConsumeIntegralInRange<uint32_t>(0, 1000));
    }
  }

  void RunSomething(tamber_context* context) {
    switch (input_.ConsumeIntegralInRange(0, 3)) {
      case 0: {
        const std::string text = "proc x()\n" + std::string(Word()) + "\nendproc\n";
        tamber_compile_text(context, "x", text.data(), text.size());
        break;
      }
      case 1:
        tamber_push_int(context, input_.ConsumeIntegral<int8_t>());
        break;
      case 2:
        tamber_push_global(context, Word());
        break;
      default:
        tamber_run(context, Word());
        ReadResult(context);
    }
  }

  void ReadResult(tamber_context* context) {
    int type = 0;
    int32_t number = 0;
    uint32_t count = 0;
    size_t length = 0;
    const char* text = nullptr;
    std::array<int32_t, 4> some{};
    tamber_result_part(context, Word());
    tamber_result_type(context, &type);
    tamber_result_size(context, &count);
    tamber_result_int(context, &number);
    tamber_result_text(context, &text, &length);
    tamber_result_ints(context, some.data(), 4, &count);
  }

  void UseCall(tamber_call* call) {
    const uint32_t position = input_.ConsumeIntegralInRange<uint32_t>(0, 4);
    const char* word = Word();
    int32_t number = 0;
    uint32_t count = 0;
    size_t length = 0;
    const char* text = nullptr;
    tamber_arg_count(call, &count);
    tamber_arg_int(call, position, &number);
    tamber_arg_text(call, position, &text, &length);
    tamber_arg_part_size(call, position, word, &count);
    if (tamber_arg_part_text(call, position, word, &text, &length) == TAMBER_OK &&
        text[length] != '\0')
      __builtin_trap();
    switch (input_.ConsumeIntegralInRange(0, 3)) {
      case 0:
        tamber_return_int(call, number);
        break;
      case 1:
        tamber_return_text(call, word, std::string_view(word).size());
        break;
      case 2:
        tamber_raise(call, input_.ConsumeIntegralInRange(-1, 21000), word);
        break;
      default:
        break;
    }
  }

  static inline Sequence* current = nullptr;

  FuzzedDataProvider& input_;
  std::array<tamber_context*, 3> contexts_{};
  std::array<tamber_program*, 2> programs_{};
  tamber_call* last_ = nullptr;  ///< has ended
  std::string text_;
  int depth_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::WithoutLeak([&] {
    FuzzedDataProvider input(data, size);
    Sequence(input).Run();
  });
  return 0;
}
