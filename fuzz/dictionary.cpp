// Prints the words of the language and of INI files, out of the engine's own tables, as a
// dictionary for libFuzzer.
#include <cstdio>
#include <set>
#include <string>
#include <string_view>

#include "frontend/reservedwords.h"
#include "tamber.h"
#include "values/settings.h"

namespace {

/// Everything but letters and digits is written as its code.
void PrintEntry(std::string_view word) {
  std::printf("\"");
  for (const char c : word) {
    const bool isPlain = kel::IsAlnum(c) || c == '_';
    std::printf(isPlain ? "%c" : "\\x%02x", static_cast<unsigned char>(c));
  }
  std::printf("\"\n");
}

}  // namespace

int main() {
  TamberContext context;
  std::set<std::string, std::less<>> words(std::begin(tamber::kReservedWords),
                                           std::end(tamber::kReservedWords));
  words.insert("self.tam");  // of script_fuzz.cpp
  // What is no operator of an expression: comments, assignments, the end of a line.
  words.insert(
      {"/*", "*/", "//", "=", "<<=", "&", "[", "]", "(", ")", ",", ";", "\\\n", "\"", "'"});
  for (const auto& op : TamberOperators::BinaryOperators) words.emplace(op.text);
  for (const auto& op : TamberOperators::UnaryOperators) words.emplace(op.text);
  for (uint32_t i = 1; i <= context.GetFunctionCount(); ++i)
    words.emplace(context.GetFunction(i)->GetName().Str());
  for (uint32_t i = 0; i < context.GetTypeCount(); ++i) words.emplace(context.GetTypeName(i).Str());
  for (uint32_t i = 0; Variable* constant = context.GetVariable(i, VARLIST_CONSTANT); ++i)
    words.emplace(constant->GetVarName().Str());
  for (const tamber::IniKeyInfo& key : tamber::IniKeys()) words.emplace(key.name);
  words.erase("");
  for (const std::string& word : words) PrintEntry(word);
  return 0;
}
