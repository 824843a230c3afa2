#include "kel/inifile.h"

#include <algorithm>
#include <ctime>
#include <limits>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "kel/bytes.h"
#include "kel/file.h"
#include "kel/fileio.h"
#include "kel/filepolicy.h"
#include "kel/kelascii.h"
#include "kel/number.h"

namespace {

constexpr uint64_t kMaxFileSize = uint64_t{16} << 20;
constexpr size_t kMaxCachedFiles = 16;

template <class Value>
using NameMap = std::unordered_map<std::string, Value, kel::NoCaseHash, kel::NoCaseEqual>;

}  // namespace

/// A parsed file; never changed once it is made.
class IniFile::Contents {
 public:
  explicit Contents(std::string_view text) {
    NameMap<std::string>* section = &sections_[""];
    while (!text.empty()) {
      const size_t end = text.find('\n');
      const std::string_view line = kel::Trimmed(text.substr(0, end));
      text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
      if (line.empty() || line.front() == ';' || line.front() == '#') continue;
      if (line.front() == '[') {
        section = &sections_[std::string(kel::Trimmed(line.substr(1, line.find(']') - 1)))];
      } else {
        AddEntry(*section, line);
      }
    }
  }

  const std::string* Find(std::string_view section, std::string_view key) const {
    const auto entries = sections_.find(section);
    if (entries == sections_.end()) return nullptr;
    const auto entry = entries->second.find(key);
    return entry == entries->second.end() ? nullptr : &entry->second;
  }

 private:
  static void AddEntry(NameMap<std::string>& section, std::string_view line) {
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) return;
    std::string_view value = kel::Trimmed(line.substr(equals + 1));
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
      value = value.substr(1, value.size() - 2);
    }
    section.try_emplace(std::string(kel::Trimmed(line.substr(0, equals))), value);
  }

  NameMap<NameMap<std::string>> sections_;
};

/// The parsed files of the process.
class IniFile::Cache {
 public:
  using Pointer = std::shared_ptr<const Contents>;

  /// Left to the end of the process: hosts may read settings while statics are destroyed.
  static Cache& Shared() {
    static Cache* const cache = new Cache;
    return *cache;
  }

  /// The file as it is now; null when there is none to read.
  Pointer Get(const KelString& path) {
    kel::FileStamp stamp;
    if (!kel::GetFileStamp(path, stamp)) return nullptr;
    if (Pointer data = Lookup(path, stamp)) return data;
    std::string text;
    if (kel::ReadRegularFile(path, text, kMaxFileSize, &stamp) != kel::ReadStatus::Ok) {
      return nullptr;
    }
    const bool settled = IsSettled(stamp);
    Pointer data = std::make_shared<const Contents>(kel::DecodeScriptText(std::move(text)));
    if (settled) Store(path, stamp, data);
    return data;
  }

 private:
  struct Entry {
    kel::FileStamp stamp;
    Pointer data;
  };

  Pointer Lookup(const KelString& path, const kel::FileStamp& stamp) {
    const std::lock_guard lock(mutex_);
    const auto entry = entries_.find(path);
    return entry != entries_.end() && entry->second.stamp == stamp ? entry->second.data : nullptr;
  }

  void Store(const KelString& path, const kel::FileStamp& stamp, const Pointer& data) {
    const std::lock_guard lock(mutex_);
    if (entries_.size() >= kMaxCachedFiles && !entries_.contains(path)) entries_.clear();
    entries_[path] = {stamp, data};
  }

  /// File times advance in steps of a few milliseconds: a file changed a moment ago could change
  /// once more without its stamp telling, so it is not kept yet.
  static bool IsSettled(const kel::FileStamp& stamp) {
    constexpr int64_t kSecond = 1'000'000'000;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const int64_t current = static_cast<int64_t>(now.tv_sec) * kSecond + now.tv_nsec;
    return current - stamp.changed > kSecond / 10;
  }

  std::mutex mutex_;
  std::unordered_map<KelString, Entry> entries_;
};

std::shared_ptr<const IniFile::Contents> IniFile::Read(const KelString& path,
                                                       const kel::FilePolicy* policy) {
  if (policy == nullptr) return Cache::Shared().Get(path);
  const kel::Place place = policy->FindForHost(path, kel::Access::Read);
  if (!place.IsFound()) return nullptr;
  if (!place.IsConfined()) return Cache::Shared().Get(path);
  std::string text;
  if (kel::ReadFile(place, text, kMaxFileSize) != kel::FileStatus::Ok) return nullptr;
  return std::make_shared<const Contents>(kel::DecodeScriptText(std::move(text)));
}

IniFile::IniFile(const KelString& path, const kel::FilePolicy* policy)
    : contents_(Read(path, policy)) {}

const std::string* IniFile::Find(const KelString& section, const KelString& key) const {
  return contents_ != nullptr ? contents_->Find(section, key) : nullptr;
}

KelString IniFile::ReadString(const KelString& section, const KelString& key,
                              const KelString& defaultValue) const {
  const std::string* const value = Find(section, key);
  return value != nullptr ? KelString(*value) : defaultValue;
}

int32_t IniFile::ReadInteger(const KelString& section, const KelString& key,
                             int32_t defaultValue) const {
  const std::string* const value = Find(section, key);
  int64_t number = 0;
  if (value == nullptr || !kel::ParseInt64Prefix(*value, number)) return defaultValue;
  return static_cast<int32_t>(std::clamp<int64_t>(number, std::numeric_limits<int32_t>::min(),
                                                  std::numeric_limits<int32_t>::max()));
}
