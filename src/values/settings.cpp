#include "values/settings.h"

#include "kel/number.h"

namespace tamber {
namespace {

constexpr IniKeyInfo kKeys[] = {
#define INI_KEY(key, section, value, meaning) {#key, IniSection::section, value, meaning},
#include "values/inikeys.def"
#undef INI_KEY
};

const IniKeyInfo& InfoOf(IniKey key) { return kKeys[static_cast<size_t>(key)]; }

KelString SectionOf(const IniKeyInfo& info, const KelString& section) {
  switch (info.section) {
    case IniSection::Config:
      return "TamberConfig";
    case IniSection::Limits:
      return "TamberLimits";
    case IniSection::Debug:
      return "TamberDebug";
    case IniSection::RunErrors:
      return "TamberRunErrors";
    case IniSection::Output:
      break;
  }
  return section;
}

}  // namespace

std::span<const IniKeyInfo> IniKeys() { return kKeys; }

KelString Settings::Text(IniKey key, const KelString& section) const {
  return TextOr(key, InfoOf(key).value, section);
}

int32_t Settings::Integer(IniKey key, const KelString& section) const {
  int64_t number = 0;
  kel::ParseInt64Prefix(InfoOf(key).value, number);
  return IntegerOr(key, static_cast<int32_t>(number), section);
}

KelString Settings::TextOr(IniKey key, const KelString& otherwise, const KelString& section) const {
  const IniKeyInfo& info = InfoOf(key);
  return file_.ReadString(SectionOf(info, section), info.name, otherwise);
}

int32_t Settings::IntegerOr(IniKey key, int32_t otherwise, const KelString& section) const {
  const IniKeyInfo& info = InfoOf(key);
  return file_.ReadInteger(SectionOf(info, section), info.name, otherwise);
}

}  // namespace tamber
