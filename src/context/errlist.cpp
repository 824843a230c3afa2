#include "context/errlist.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "kel/kelascii.h"
#include "values/epoch.h"

namespace {

struct BuiltInError {
  int32_t code;
  std::string_view name;
  std::string_view text;
};

constexpr auto kBuiltInErrors = std::to_array<BuiltInError>({
#define TAMBER_ERROR(code, name, text) {code, #name, text},
#include "values/errlist.def"
#undef TAMBER_ERROR
});

constexpr bool CodesAreUnique() {
  for (size_t i = 0; i < kBuiltInErrors.size(); ++i) {
    for (size_t j = 0; j < i; ++j) {
      if (kBuiltInErrors[i].code == kBuiltInErrors[j].code) return false;
    }
  }
  return true;
}
static_assert(CodesAreUnique());

constexpr size_t kRoomForModules = 16;

}  // namespace

void ErrorList::AddBuiltInNames(kel::NameFilter& names) {
  for (const BuiltInError& error : kBuiltInErrors) names.Add(error.name);
}

ErrorList::Table& ErrorList::OwnErrors() {
  version_ = tamber::NextEpoch();
  return table_.Write();
}

void ErrorList::Initialise() {
  Table& table = OwnErrors();
  table.records.reserve(table.records.size() + kBuiltInErrors.size() + kRoomForModules);
  for (const BuiltInError& error : kBuiltInErrors) {
    Add(table, ERRORINFO{error.code, error.name, error.text});
  }
}

int32_t ErrorList::AddError(const ERRORINFO& error) { return Add(OwnErrors(), error); }

int32_t ErrorList::AddError(int32_t code, const KelString& name, const KelString& text) {
  return Add(OwnErrors(), ERRORINFO{code, name, text});
}

uint32_t ErrorList::GetNewRuntimeErrorCode() {
  if (table_.Read().highestRuntimeCode == 0) {
    const int32_t fallback = GetHighestErrorCode(tamber::kFirstFatalError);
    if (fallback != 0) OwnErrors().highestRuntimeCode = static_cast<uint32_t>(fallback);
  }
  return table_.Read().highestRuntimeCode + 1;
}

int32_t ErrorList::GetNextErrorCode(int32_t code) const {
  const std::vector<ERRORINFO>& records = table_.Read().records;
  if (code == 0) return records.empty() ? 0 : records.front().code;
  if (FindError(code) < 0) return 0;
  const auto next = std::upper_bound(
      records.begin(), records.end(), code,
      [](int32_t wanted, const ERRORINFO& record) { return wanted < record.code; });
  return next == records.end() ? 0 : next->code;
}

KelString ErrorList::GetErrorText(int32_t code) const {
  const ERRORINFO* error = GetError(code);
  return error != nullptr ? error->text : KelString();
}

KelString ErrorList::GetErrorName(int32_t code) const {
  const ERRORINFO* error = GetError(code);
  return error != nullptr ? error->name : KelString();
}

int32_t ErrorList::FindErrorCode(std::string_view name) const {
  for (const ERRORINFO& record : table_.Read().records) {
    if (kel::EqualsNoCase(record.name.View(), name)) return record.code;
  }
  return 0;
}

// The records stay sorted as they are added, so that look-ups never change a table that other
// contexts read.
int32_t ErrorList::Add(Table& table, ERRORINFO error) {
  const auto behind =
      std::upper_bound(table.records.begin(), table.records.end(), error.code,
                       [](int32_t code, const ERRORINFO& record) { return code < record.code; });
  if (error.code < tamber::kFirstFatalError) {
    table.highestRuntimeCode = static_cast<uint32_t>(error.code);
  }
  table.records.insert(behind, std::move(error));
  return static_cast<int32_t>(table.records.size()) - 1;
}

int32_t ErrorList::GetHighestErrorCode(int32_t code) const {
  return FindError(code) >= 0 ? code : 0;
}

const ERRORINFO* ErrorList::GetError(int32_t code) const {
  const int32_t at = FindError(code);
  return at >= 0 ? &table_.Read().records[static_cast<size_t>(at)] : nullptr;
}

int32_t ErrorList::FindError(int32_t code) const {
  const std::vector<ERRORINFO>& records = table_.Read().records;
  const auto found = std::lower_bound(
      records.begin(), records.end(), code,
      [](const ERRORINFO& record, int32_t wanted) { return record.code < wanted; });
  if (found == records.end() || found->code != code) return -1;
  return static_cast<int32_t>(found - records.begin());
}
