#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "expr/exprnames.h"
#include "expr/knownname.h"
#include "kel/kelascii.h"

namespace tamber {

class CompileHost;
class LocalTable;

/// Remembers what names mean while bodies are compiled, when nothing but the locals changes: most
/// of a body's words have been met before. Words are found by their spelling; what they mean is
/// kept once for all spellings.
///
/// To the parser of expressions it is the context that it asks.
class NameMemo final : public ExpressionNames {
 public:
  explicit NameMemo(CompileHost& host) : host_(host) {}
  NameMemo(const NameMemo&) = delete;
  NameMemo& operator=(const NameMemo&) = delete;

  /// Called when what names mean may have changed.
  void Clear();
  /// From now on slots are those of another body, which has these parameters.
  void BeginBody(const LocalTable& locals);
  void AddLocal(std::string_view name, int32_t slot);
  /// A local may have the name, so that nobody need ask again.
  void NoteFree(std::string_view name);
  /// Good until the next Clear.
  const KnownName& Find(std::string_view word) { return Entry(word).known; }

  const KnownName* Remembered(std::string_view name) override { return &Find(name); }
  Variable* FindVariable(const KelString& name, uint32_t scopes) override;
  const Variable* FindConstant(std::string_view name) override;
  Callable* FindCallable(std::string_view name) override;
  FunctionList& Functions() override;
  void OfferNames(kel::NearestName& nearest, bool callable) override;
  Machine& Evaluator() override;

 private:
  struct Meaning {
    KnownName known;
    uint32_t body = 0;  // that the slot is of
  };
  /// The first and the last bytes of a word: all of it when it has no more than 16.
  struct Ends {
    uint64_t first = 0;
    uint64_t last = 0;
    bool operator==(const Ends&) const = default;
  };
  struct Word {
    std::string_view text;
    Ends ends;
    Meaning* meaning = nullptr;
  };

  static Ends EndsOf(std::string_view word);
  static uint64_t HashOf(std::string_view word, const Ends& ends);

  Meaning& Entry(std::string_view word);
  Meaning& Add(std::string_view word);
  void Grow();
  KnownName LookUp(std::string_view word) const;

  CompileHost& host_;
  uint32_t body_ = 0;
  std::vector<Word> words_;  // open addressing; no meaning: free
  size_t count_ = 0;
  std::deque<std::string> texts_;
  std::unordered_map<std::string_view, Meaning, kel::NoCaseHash, kel::NoCaseEqual> meanings_;
};

}  // namespace tamber
