#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "context/tambctxt.h"

namespace {

std::string Chance() {
  TamberContext context;
  KelString output;
  context.SetOutput(&output);
  EXPECT_EQ(context.CompileScriptBuffer("chance", "Print(Rand() + \" \" + Rand())", 1), 1);
  EXPECT_EQ(context.RunProcedure("main", nullptr), 1);
  return output.Str();
}

TEST(Rand, GivesTheSameNumbersOnEveryThread) {
  Chance();  // takes nothing from the thread
  std::string there;
  std::thread([&] { there = Chance(); }).join();
  EXPECT_EQ(there, "16838 5758");
}

}  // namespace
