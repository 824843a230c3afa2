#include "kel/kelformat.h"

#include <gtest/gtest.h>

#include "kel/kelstring.h"

using kel::Format;

namespace {

// A message never becomes a way to read what was not passed.
TEST(Format, CopiesWhatItCannotConvert) {
  struct Row {
    std::string_view format, expected;
  };
  const Row rows[] = {{"%FileVersion", "%FileVersion"},
                      {"%n%p%*d%d", "%n%p%*d7"},
                      {"%", "%"},
                      {"%d%", "7%"},
                      {"%5", "%5"},
                      {"%-0", "%-0"},
                      {"%.", "%."},
                      {"%ll", "%ll"},
                      {"%d %d", "7 %d"},
                      {"%d %5.1f", "7 %5.1f"},
                      {"%S|%d", "%S|%d"},
                      {"%f", "%f"},
                      {"%.3d", "%.3d"},
                      {"%999999999999d", "%999999999999d"},
                      {"%%d", "%d"},
                      {"%5%d", "%57"},
                      {"", ""}};
  for (const Row& row : rows) {
    EXPECT_EQ(Format(row.format, 7), row.expected) << row.format;
  }
  EXPECT_EQ(Format("%S%s"), "%S%s");
  EXPECT_EQ(Format("%d %S", "%d%S%n", "x"), "%d x");
  EXPECT_EQ(Format(std::string_view("a\0%d", 4), 1), std::string("a\0"
                                                                 "1",
                                                                 3));
}

TEST(KelString, PrintsPartsOfItself) {
  KelString text = "a text that is too long for the small buffer inside";
  const KelString before = text;
  text.Printf("%S/%S", text, text);
  EXPECT_EQ(text, before + "/" + before);
  text.AppendPrintf("%s%S", "+", text.View().substr(0, 1));
  EXPECT_EQ(text, before + "/" + before + "+a");
}

}  // namespace
