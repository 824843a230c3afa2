#include <array>
#include <iostream>
#include <string>
#include <thread>

#include "tamber.h"

namespace {

constexpr const char* kScript =
    "string[] greetings\n"
    "int served\n"
    "proc SetUp()\n"
    "  greetings <<= \"hello\"\n"
    "  greetings <<= \"welcome\"\n"
    "endproc\n"
    "string Greet(int which, string who)\n"
    "  served += 1\n"
    "  return greetings[which] + \", \" + who + \" (\" + served + \")\"\n"
    "endproc\n";

/// Compiles the script, lets it set itself up, and makes a program of both.
std::shared_ptr<const TamberProgram> Prepare() {
  TamberContext context;
  if (!context.CompileScriptBuffer("greetings", kScript, 1)) return nullptr;
  if (!Call(context, "SetUp")) return nullptr;
  return context.Freeze();
}

}  // namespace

int main() {
  const std::shared_ptr<const TamberProgram> program = Prepare();
  if (program == nullptr) return 1;
  std::array<std::string, 4> answers;
  std::array<std::thread, 4> threads;
  for (size_t t = 0; t < threads.size(); ++t) {
    threads[t] = std::thread([&program, &answer = answers[t], t] {
      for (int32_t which : {1, 2}) {
        // A context for each request: nothing of the last one is left, and nothing is compiled.
        TamberContext context(program);
        answer += Call<std::string>(context, "Greet", which, std::to_string(t)).ValueOr("failed");
        answer += '\n';
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string& answer : answers) std::cout << answer;
  return 0;
}
