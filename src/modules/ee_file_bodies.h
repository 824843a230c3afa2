#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "modules/fileaccess.h"

/// The bodies of the file module, by the file that holds them; what each does for scripts is told
/// in docs/builtins/files.md. Lines count from 1.
namespace tamber::files {

/// The module's own errors, in the order of their registration.
enum class NetError {
  Connect,
  Login,
  Password,
  ShareName,
  GetFile,
  PutFile,
  DelFile,
  BadFormat,
  BadProtocol,
  BadPath,
};
/// The number that an error has in the context of the call.
int32_t CodeOf(Call& call, NetError error);

// ee_file_lines.cpp: text files by line
std::string HandlePath(Call& call, Handle file);
int32_t HandleLineCount(Call& call, Handle file);
bool HandleDeleteLine(Call& call, Handle file, int32_t line);
bool HandleAddLine(Call& call, Handle file, std::string_view text);
bool HandleInsertLine(Call& call, Handle file, int32_t line, std::string_view text);
std::string_view HandleLine(Call& call, Handle file, int32_t line);
bool CloseText(Call& call, Handle file);
Handle OpenText(Call& call, std::string_view path);
bool PathAddLine(Call& call, std::string_view path, std::string_view text);
bool PathInsertLine(Call& call, std::string_view path, int32_t line, std::string_view text);
bool PathDeleteLine(Call& call, std::string_view path, int32_t line);
std::string PathLine(Call& call, std::string_view path, int32_t line);
int32_t PathLineCount(Call& call, std::string_view path);

// ee_file_contents.cpp: whole files
std::string Md5(Call& call, std::string_view path);
Text ToText(Call& call, std::string_view path, bool singleLine);
bool ToCodePage(Call& call, std::string_view path, std::string_view page);
bool ToUtf8(Call& call, std::string_view path, std::string_view page);
bool Compare(Call& call, std::string_view first, std::string_view second);
int32_t Decompress(Call& call, std::string_view source, std::string_view target);
int32_t Compress(Call& call, std::string_view source, std::string_view target);
bool IsText(Call& call, std::string_view path);

// ee_file_find.cpp: searches
bool CloseSearch(Call& call, Handle search);
std::string NextFound(Call& call, Handle search);
Handle OpenSearch(Call& call, std::string_view pattern);
ArrayResult FindPcre(Call& call, std::string_view pattern, std::string_view page,
                     bool caseSensitive);

// ee_file_version.cpp: executables
ArrayResult Modules(Call& call, std::string_view path, bool resolve, bool recurse);
bool HasVersionInfo(Call& call, std::string_view path);
std::string VersionValue(Call& call, std::string_view path, std::string_view language,
                         std::string_view name);
ArrayResult VersionLanguages(Call& call, std::string_view path);
int32_t VersionHigh(Call& call, std::string_view path);
int32_t VersionLow(Call& call, std::string_view path);

// ee_file_copy.cpp: copying, moving, creating and deleting, by path or URL
bool Move(Call& call, std::string_view source, std::string_view target);
std::string CreateTemp(Call& call, std::string_view prefix);
bool Create(Call& call, std::string_view path);
bool CopyForced(Call& call, std::string_view source, std::string_view target, bool force);
bool Copy(Call& call, std::string_view source, std::string_view target);
bool DeleteForced(Call& call, std::string_view url, bool force);
bool Delete(Call& call, std::string_view url);

// ee_file_stat.cpp: what the system knows about a file
bool IsWritable(Call& call, std::string_view path);
bool Exists(Call& call, std::string_view path);
bool SetMode(Call& call, std::string_view path, int32_t mode);
bool SetAttr(Call& call, std::string_view path, int32_t attributes);
int32_t GetMode(Call& call, std::string_view path);
int32_t GetAttr(Call& call, std::string_view path);
int32_t GetSize(Call& call, std::string_view path);
int32_t GetSizeKb(Call& call, std::string_view path);
int32_t GetSizeMb(Call& call, std::string_view path);
/// What is known about a file; error 103 and Missing when there is none.
kel::FileStat StatOf(Call& call, std::string_view path);

/// A part of the date on which a file was last changed, or made, in local time.
template <int32_t kel::LocalTime::*Part, int64_t kel::FileStat::*Date>
int32_t DatePart(Call& call, std::string_view path) {
  const kel::FileStat info = StatOf(call, path);
  return info.kind == kel::FileKind::Missing ? 0 : kel::ToLocalTime(info.*Date).*Part;
}

}  // namespace tamber::files
