// Fuzzes the INI reader: the text of the file, and the names that are looked for in it.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "kel/inifile.h"

namespace {

/// A file of this process, in memory where the system offers that; gone at the end.
class IniText {
 public:
  IniText() : path_("/dev/shm/tamber-ini-fuzz-" + std::to_string(::getpid())) {}
  IniText(const IniText&) = delete;
  IniText& operator=(const IniText&) = delete;
  ~IniText() { ::unlink(path_.c_str()); }
  const std::string& Path() const { return path_; }
  void Set(const uint8_t* data, size_t size) {
    std::ofstream(path_, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }

 private:
  std::string path_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static IniText file;
  file.Set(data, size);
  const IniFile ini(KelString(file.Path()));
  // The names come from the text itself, so that some of them are there.
  const std::string text(reinterpret_cast<const char*>(data), size);
  const size_t open = text.find('[');
  const size_t close = open == text.npos ? open : text.find(']', open);
  const size_t equals = text.find('=');
  const std::string section = close == text.npos ? "" : text.substr(open + 1, close - open - 1);
  const std::string key = text.substr(0, equals);
  const KelString value = ini.ReadString(section, key.substr(key.rfind('\n') + 1), "none");
  if (value.GetLength() > size * 3 + 4) std::abort();  // UTF-16 grows; nothing else does
  ini.ReadInteger(section, key, -1);
  ini.ReadInteger("TamberDebug", "DumpSource", 10);
  return 0;
}
