#include <algorithm>
#include <optional>
#include <span>
#include <vector>

#include "context/tambctxt.h"
#include "kel/kelascii.h"
#include "kel/kelformat.h"
#include "kel/longstring.h"
#include "kel/regex_pcre.h"
#include "kel/stop.h"
#include "kel/utf8.h"
#include "modules/ee_str_bodies.h"
#include "modules/patterncache.h"
#include "values/structdata.h"
#include "values/varholder.h"

namespace tamber::strings {
namespace {

/// The matches of a pattern in a text, one after the other without overlap. After an empty match
/// the search goes on one character further. Failures are reported to the call.
class Scan {
 public:
  Scan(Call& call, std::string_view subject, std::string_view pattern, PatternKind kind)
      : call_(call), subject_(subject), pattern_(pattern), utf8_(kel::IsUtf8(subject)) {
    kel::RegexFault fault;
    regex_ = call.Context().ModuleState<PatternCache>().Get(pattern, kind, fault);
    if (regex_ != nullptr) return;
    failed_ = true;
    call.Fail(ERR_INVALIDPARAM, kel::Format("%S at position %u in %S", fault.message,
                                            fault.offset + 1, Excerpt(pattern)));
  }

  /// Whether there is a match; not to be mixed with Next.
  bool HasAny() { return !failed_ && Find(0); }
  /// Finds the next match with the places of so many groups, the whole match included.
  bool Next(size_t wanted) {
    if (failed_ || next_ > subject_.size() || !Find(wanted)) return false;
    const kel::RegexSpan& whole = Whole();
    // An expression may look back and match before the place where the search began.
    next_ = std::max(whole.end, next_);
    if (whole.begin == whole.end) next_ += CharacterAt(next_);
    return true;
  }
  bool Failed() const { return failed_; }
  size_t GroupCount() const { return failed_ ? 0 : regex_->GroupCount(); }
  const std::vector<kel::RegexSpan>& Groups() const { return regex_->Groups(); }
  const kel::RegexSpan& Whole() const { return regex_->Groups().front(); }

 private:
  bool Find(size_t wanted) {
    const kel::RegexStatus status = regex_->Find(subject_, next_, utf8_, budget_, wanted);
    if (status == kel::RegexStatus::kLimit) {
      failed_ = true;
      call_.Fail(ERR_FUNCFAILED, Excerpt(pattern_));
    }
    return status == kel::RegexStatus::kMatch;
  }
  size_t CharacterAt(size_t at) const {
    if (at >= subject_.size() || !regex_->CountsCharacters(utf8_)) return 1;
    return kel::CharacterLength(subject_, at);
  }

  Call& call_;
  std::string_view subject_;
  std::string_view pattern_;
  bool utf8_;
  bool failed_ = false;
  kel::Regex* regex_;
  size_t next_ = 0;
  kel::RegexBudget budget_;
};

/// What stands for each match: literal text and numbers of groups. `$1` and `\1` are groups, `$0`
/// the whole match, `$$` and `\\` the signs themselves. Two digits are one number if there is such
/// a group.
class Replacement {
 public:
  Replacement(std::string_view text, size_t groups) : groups_(groups) {
    size_t at = 0;
    const kel::ByteSet signs("$\\");
    kel::StopPoll poll(65536);
    while (at < text.size()) {
      poll.Step();
      const size_t sign = signs.FindIn(text, at);
      AddLiteral(text.substr(at, sign - at));
      at = sign == text.size() ? sign : sign + AddSign(text.substr(sign, 3));
    }
  }
  /// How many groups, the whole match included, have to be known.
  size_t Wanted() const {
    size_t wanted = 1;
    for (const Piece& piece : pieces_) {
      if (piece.group > 0) wanted = std::max(wanted, static_cast<size_t>(piece.group) + 1);
    }
    return wanted;
  }
  void AppendTo(TextBuilder& out, std::string_view subject,
                const std::vector<kel::RegexSpan>& groups) const {
    for (const Piece& piece : pieces_) {
      if (piece.group < 0) {
        out.Append(piece.literal);
      } else if (static_cast<size_t>(piece.group) < groups.size()) {
        out.Append(groups[static_cast<size_t>(piece.group)].In(subject));
      }
    }
  }

 private:
  struct Piece {
    std::string_view literal;
    int group = -1;
  };
  void AddLiteral(std::string_view literal) {
    if (!literal.empty()) pieces_.push_back({literal});
  }
  /// Takes what a "$" or "\" begins; returns its length.
  size_t AddSign(std::string_view text) {
    if (text.size() > 1 && kel::IsDigit(text[1])) {
      const int one = text[1] - '0';
      const bool digits = text.size() > 2 && kel::IsDigit(text[2]);
      const int two = digits ? one * 10 + (text[2] - '0') : one;
      const bool isTwo = digits && static_cast<size_t>(two) < groups_;
      pieces_.push_back({{}, isTwo ? two : one});
      return isTwo ? 3 : 2;
    }
    AddLiteral(text.substr(0, 1));
    return text.size() > 1 && text[1] == text[0] ? 2 : 1;
  }

  size_t groups_;  ///< the whole match included
  std::vector<Piece> pieces_;
};

Text ReplaceAll(Call& call, std::string_view value, std::string_view pattern,
                std::string_view replacement, PatternKind kind) {
  Scan scan(call, value, pattern, kind);
  const Replacement pieces(replacement, scan.GroupCount());
  const size_t wanted = pieces.Wanted();
  if (!scan.Next(wanted)) return Text(value);
  TextBuilder out(value.size());
  size_t copied = 0;
  do {
    const kel::RegexSpan whole = scan.Whole();
    const size_t begin = std::max(whole.begin, copied);
    out.Append(value.substr(copied, begin - copied));
    pieces.AppendTo(out, value, scan.Groups());
    copied = std::max(whole.end, copied);
  } while (scan.Next(wanted));
  if (scan.Failed()) return Text(value);
  out.Append(value.substr(copied));
  return out.Finish();
}

constexpr PatternKind Posix(bool caseSensitive) { return {true, caseSensitive, false}; }
constexpr PatternKind Pcre(bool caseSensitive, bool multiline = false) {
  return {false, caseSensitive, multiline};
}

/// A type that a prototype of this module declares as a function's result.
TypeRef ResultTypeOf(Call& call, std::string_view function) {
  const TamberContext& context = call.Context();
  return context.GetFunction(context.FindFunction(function))->ReturnType();
}

/// The texts become the elements of an array variable; what it held before is gone.
void SetTexts(Variable& target, std::span<const std::string_view> texts) {
  const TypeRef type = TypeOf(target);
  if (type->IsArray() && type->Element() && type->Element()->GetKind() == Kind::String) {
    ArrayResult result(type);
    for (const std::string_view text : texts) result.AppendText(text);
    ArrayData*& slot = CellOf(target)->a;
    if (slot != nullptr) Release(slot);
    slot = result.TakeCell().a;
    return;
  }
  target.SetArraySize(0);
  for (const std::string_view text : texts) {
    Text element(text);
    VarHolder variable(
        MakeOwnedVariable(TypeDesc::Of(Kind::String), Name(), {Kind::String, element.TakeCell()}));
    if (target.AddArrayElement(variable.get()) != 0) static_cast<void>(variable.release());
  }
}

bool FindFirst(Call& call, std::string_view value, std::string_view pattern, Variable* result,
               PatternKind kind) {
  std::vector<std::string_view> texts;
  Scan scan(call, value, pattern, kind);
  const bool found = scan.Next(kel::Regex::kAllGroups);
  if (found) {
    for (const kel::RegexSpan& group : scan.Groups()) texts.push_back(group.In(value));
  }
  if (result != nullptr) SetTexts(*result, texts);
  return found;
}

/// The value as it is when it is called safe, else with blanks for control bytes.
class SafeValue {
 public:
  SafeValue(std::string_view value, bool safe) : view_(value) {
    if (safe) return;
    copy_ = kel::CopyOf(value);
    kel::StopPoll poll(65536);
    for (char& c : *copy_) {
      poll.Step();
      const bool control = static_cast<unsigned char>(c) < 32 || c == 127;
      if (control && c != '\t' && c != '\n' && c != '\r') c = ' ';
    }
    view_ = *copy_;
  }
  SafeValue(const SafeValue&) = delete;
  SafeValue& operator=(const SafeValue&) = delete;
  std::string_view View() const { return view_; }

 private:
  std::optional<std::string> copy_;
  std::string_view view_;
};

/// A pattern that matches the text itself.
std::string Quoted(std::string_view text) {
  std::string pattern;
  pattern.reserve(text.size() * 2);
  for (const char c : text) {
    if (c == '\0') {
      pattern += "\\x00";
      continue;
    }
    if (static_cast<unsigned char>(c) < 0x80 && !kel::IsAlnum(c)) pattern += '\\';
    pattern += c;
  }
  return pattern;
}

/// The pattern as it is when it is called safe, else quoted.
std::string SafePattern(std::string_view pattern, bool safe) {
  pattern = pattern.substr(0, kel::kLongestPcre + 1);
  return safe ? std::string(pattern) : Quoted(pattern);
}

}  // namespace

bool MatchRegEx(Call& call, std::string_view value, std::string_view pattern, bool caseSensitive) {
  return Scan(call, value, pattern, Posix(caseSensitive)).HasAny();
}

ArrayResult FindRegEx(Call& call, std::string_view value, std::string_view pattern,
                      bool caseSensitive) {
  ArrayResult texts(StringArrayType());
  Scan scan(call, value, pattern, Posix(caseSensitive));
  while (scan.Next(1)) texts.AppendText(scan.Whole().In(value));
  return scan.Failed() ? ArrayResult(StringArrayType()) : std::move(texts);
}

ArrayResult FindRegEx2(Call& call, std::string_view value, std::string_view pattern,
                       bool caseSensitive) {
  const TypeRef type = ResultTypeOf(call, "StrFindRegEx2");
  ArrayResult places(type);
  Scan scan(call, value, pattern, Posix(caseSensitive));
  while (scan.Next(1)) {
    const kel::RegexSpan& whole = scan.Whole();
    StructData* place = StructData::New(type->Element()->Layout());
    place->Put(0, IntCell(static_cast<int32_t>(whole.begin + 1)));
    place->Put(1, IntCell(static_cast<int32_t>(whole.end - whole.begin)));
    Cell cell = ZeroCell();
    cell.st = place;
    places->AppendOwned(cell);
  }
  return scan.Failed() ? ArrayResult(type) : std::move(places);
}

Text ReplaceRegEx(Call& call, std::string_view value, std::string_view pattern,
                  std::string_view replacement, bool caseSensitive) {
  return ReplaceAll(call, value, pattern, replacement, Posix(caseSensitive));
}

bool FindPcre(Call& call, std::string_view value, std::string_view pattern, Variable* result,
              bool caseSensitive) {
  return FindFirst(call, value, pattern, result, Pcre(caseSensitive));
}

bool FindPcreLines(Call& call, std::string_view value, std::string_view pattern, Variable* result,
                   bool caseSensitive, bool multiline) {
  return FindFirst(call, value, pattern, result, Pcre(caseSensitive, multiline));
}

bool FindPcreSafe(Call& call, std::string_view value, std::string_view pattern, Variable* result,
                  bool caseSensitive, bool stringSafe, bool regexSafe) {
  const SafeValue safe(value, stringSafe);
  return FindFirst(call, safe.View(), SafePattern(pattern, regexSafe), result, Pcre(caseSensitive));
}

bool MatchPcre(Call& call, std::string_view value, std::string_view pattern) {
  return MatchPcreCase(call, value, pattern, CaseSwitch(call));
}

bool MatchPcreCase(Call& call, std::string_view value, std::string_view pattern,
                   bool caseSensitive) {
  return Scan(call, value, pattern, Pcre(caseSensitive)).HasAny();
}

bool MatchPcreSafe(Call& call, std::string_view value, std::string_view pattern, bool caseSensitive,
                   bool stringSafe, bool regexSafe) {
  const SafeValue safe(value, stringSafe);
  return MatchPcreCase(call, safe.View(), SafePattern(pattern, regexSafe), caseSensitive);
}

Text ReplacePcre(Call& call, std::string_view value, std::string_view pattern,
                 std::string_view replacement, bool caseSensitive) {
  return ReplaceAll(call, value, pattern, replacement, Pcre(caseSensitive));
}

}  // namespace tamber::strings
