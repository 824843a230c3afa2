#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "kel/cow.h"
#include "kel/export.h"
#include "kel/kelstring.h"
#include "kel/namefilter.h"
#include "values/errcodes.h"

namespace tamber {
struct NameView;
}

/// One error: its number, its symbolic name ("ERR_FILENOTFOUND") and what it means.
struct ERRORINFO {
  int32_t code;
  KelString name;
  KelString text;
};

/// The error numbers that a context knows: the built-in ones and those that modules register.
///
/// Copies share one table until one of them gets an error of its own.
class TAMBER_API ErrorList {
 public:
  /// An empty list.
  ErrorList() = default;
  /// A list that starts as a copy of another one, which is asked for at the first look at it.
  template <const ErrorList& (*Source)()>
  static ErrorList Deferred() {
    ErrorList list;
    list.table_ = kel::Cow<Table>(+[]() -> const kel::Cow<Table>& { return Source().table_; });
    return list;
  }

  /// Adds the names of the built-in errors.
  static void AddBuiltInNames(kel::NameFilter& names);

  /// Adds the built-in errors.
  void Initialise();

  /// Adds a copy of the record and returns its 0-based index in the order of adding. A code below
  /// 20000 becomes the highest run-time code, whatever that was before. When a code is there twice,
  /// look-ups find the record that was added first.
  int32_t AddError(const ERRORINFO& error);
  int32_t AddError(int32_t code, const KelString& name, const KelString& text);

  /// The number for the next run-time error: one above the highest run-time code. It stays the same
  /// until a record is added.
  uint32_t GetNewRuntimeErrorCode();

  /// Walks the codes in ascending order: the lowest for 0, else the one behind `code`; 0 at the end
  /// and for a code that is not in the list.
  int32_t GetNextErrorCode(int32_t code) const;

  /// The message or name of a code; "" when the list does not hold it.
  KelString GetErrorText(int32_t code) const;
  KelString GetErrorName(int32_t code) const;
  /// The lowest code of this name, in any case; 0 when the list does not hold it.
  int32_t FindErrorCode(std::string_view name) const;

 private:
  friend struct tamber::NameView;

  struct Table {
    std::vector<ERRORINFO>
        records;  // ascending by code; of equal codes the first added comes first
    uint32_t highestRuntimeCode = 0;
  };

  TAMBER_LOCAL static int32_t Add(Table& table, ERRORINFO error);
  TAMBER_LOCAL int32_t GetHighestErrorCode(int32_t code) const;
  TAMBER_LOCAL const ERRORINFO* GetError(int32_t code) const;
  TAMBER_LOCAL int32_t FindError(int32_t code) const;

  TAMBER_LOCAL Table& OwnErrors();

  kel::Cow<Table> table_;
  uint64_t version_ = 0;  ///< another number after every change, in all lists of the process
};
