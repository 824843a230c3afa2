#include "modules/ee_file.h"

#include "modules/ee_file_bodies.h"

namespace tamber::files {
namespace {

constexpr FunctionTraits kPlain{true, true, 0};

template <int32_t kel::LocalTime::*Part>
int32_t Created(Call& call, std::string_view path) {
  return DatePart<Part, &kel::FileStat::created>(call, path);
}
template <int32_t kel::LocalTime::*Part>
int32_t Changed(Call& call, std::string_view path) {
  return DatePart<Part, &kel::FileStat::modified>(call, path);
}

const FUNCMOD_OBJECT* HandleTypes() {
  static const FUNCMOD_OBJECT list[] = {{"TextFileHandle"}, {"FileFindInfo"}, {""}};
  return list;
}

/// In the order of NetError.
const FUNCMOD_ERROR* Errors() {
  static const FUNCMOD_ERROR list[] = {
      {0, "FILENET_ERR_CONNECT", "Failed to connect to server"},
      {0, "FILENET_ERR_LOGIN", "Failed to logon to server using user name/password"},
      {0, "FILENET_ERR_PASSWORD", "Server rejected user password"},
      {0, "FILENET_ERR_SHARENAME", "Server rejected share name"},
      {0, "FILENET_ERR_GETFILE", "Failed to read file from source"},
      {0, "FILENET_ERR_PUTFILE", "Failed to write file to destination"},
      {0, "FILENET_ERR_DELFILE", "Failed to delete file"},
      {0, "FILENET_ERR_BADFORMAT", "Supplied URL is incorrectly formatted"},
      {0, "FILENET_ERR_BADPROTOCOL", "Supplied URL specifies unrecognised protocol"},
      {0, "FILENET_ERR_BADPATH", "Server did not find path"},
      {0, "", ""},
  };
  return list;
}

const FUNCMOD_FUNCTION* Functions() {
  // The order is that of the manual, and decides ties between overloads.
  static const FUNCMOD_FUNCTION list[] = {
      {"string FileGetPath (TextFileHandle)", Wrap<HandlePath>,
       "The path that a text file was opened with.", kPlain},
      {"int FileGetLineCount (TextFileHandle)", Wrap<HandleLineCount>,
       "Number of lines of an open text file.", kPlain},
      {"bool FileDeleteLine (TextFileHandle, int LineNum)", Wrap<HandleDeleteLine>,
       "Removes a line of an open text file.", kPlain},
      {"bool FileAddLine (TextFileHandle, string LineText)", Wrap<HandleAddLine>,
       "Adds a line at the end of an open text file.", kPlain},
      {"bool FileInsertLine (TextFileHandle, int LineNum, string LineText)", Wrap<HandleInsertLine>,
       "Puts a line before line LineNum of an open text file.", kPlain},
      {"string FileGetLine (TextFileHandle, int LineNum)", Wrap<HandleLine>,
       "A line of an open text file, without its end.", kPlain},
      {"bool FileTextClose (TextFileHandle)", Wrap<CloseText>,
       "Writes an open text file back if it was changed, and closes it.", kPlain},
      {"TextFileHandle FileTextOpen (string FilePath)", Wrap<OpenText>,
       "Opens a text file to work on its lines in memory.", kPlain},
      {"string FileMd5 (string FileName)", Wrap<Md5>,
       "MD5 of a file in lower-case hexadecimal digits.", kPlain},
      {"string FileToString (string FileName, bool fSingleLineOutput)", Wrap<ToText>,
       "The contents of a file, line ends turned into blanks on demand.", kPlain},
      {"string[] FileFindPcre (string FileName, string CodePage, bool CaseSensitive)",
       Wrap<FindPcre>, "Paths of the files whose names match a Perl-style pattern.", kPlain},
      {"bool FileConvertToCodePage (string FileName, string CodePage)", Wrap<ToCodePage>,
       "Rewrites a UTF-8 text file in another code page.", kPlain},
      {"bool FileConvertToUTF8 (string FileName, string CodePage)", Wrap<ToUtf8>,
       "Rewrites a text file of a code page in UTF-8.", kPlain},
      {"bool FileFindClose (FileFindInfo)", Wrap<CloseSearch>, "Ends a search for files.", kPlain},
      {"string FileFindNext (FileFindInfo)", Wrap<NextFound>,
       "The next name that a search finds; \"\" at the end.", kPlain},
      {"FileFindInfo FileFindOpen (string SearchPath)", Wrap<OpenSearch>,
       "Searches a directory for files with wildcards.", kPlain},
      {"string[] FileGetModules (string FilePath, bool Resolve, bool Recurse)", Wrap<Modules>,
       "The modules that an executable needs.", kPlain},
      {"bool FileHasVersionInfo (string FilePath)", Wrap<HasVersionInfo>,
       "Whether a file has a version resource.", kPlain},
      {"string FileGetVersionValue (string FilePath, string LanguageCode, string Name)",
       Wrap<VersionValue>, "A string of a file's version resource.", kPlain},
      {"string[] FileGetVersionLanguages (string FilePath)", Wrap<VersionLanguages>,
       "The languages of a file's version resource.", kPlain},
      {"int FileGetVersionH (string FilePath)", Wrap<VersionHigh>,
       "The first two fields of a file's version in one number.", kPlain},
      {"int FileGetVersionL (string FilePath)", Wrap<VersionLow>,
       "The third and fourth field of a file's version in one number.", kPlain},
      {"bool FileIsWritable (string FilePath)", Wrap<IsWritable>,
       "Whether a file may be written to.", kPlain},
      {"bool FileCompare (string File1, string File2)", Wrap<Compare>,
       "Whether two files hold the same bytes.", kPlain},
      {"bool FileAddLine (string FilePath, string LineText)", Wrap<PathAddLine>,
       "Adds a string at the end of a file, unchanged.", kPlain},
      {"bool FileInsertLine (string FilePath, int LineNum, string LineText)", Wrap<PathInsertLine>,
       "Puts a line before line LineNum of a file.", kPlain},
      {"bool FileDeleteLine (string FilePath, int LineNum)", Wrap<PathDeleteLine>,
       "Removes a line of a file.", kPlain},
      {"string FileGetLine (string FilePath, int LineNum)", Wrap<PathLine>,
       "A line of a file, without its end.", kPlain},
      {"int FileGetLineCount (string FilePath)", Wrap<PathLineCount>, "Number of lines of a file.",
       kPlain},
      {"bool FileRename (string SrcUrl, string DstUrl)", Wrap<Move>, "The same as FileMove.",
       kPlain},
      {"bool FileMove (string SrcUrl, string DstUrl)", Wrap<Move>,
       "Moves or renames a file, by path or URL.", kPlain},
      {"string FileCreateTemp (string Prefix)", Wrap<CreateTemp>,
       "Creates an empty temporary file and returns its path.", kPlain},
      {"bool FileCreate (string FilePath)", Wrap<Create>,
       "Creates an empty file unless there is one.", kPlain},
      {"bool FileCopy (string SrcUrl, string DstUrl, bool fForceCopy)", Wrap<CopyForced>,
       "Copies a file, by path or URL; replaces an existing one on demand.", kPlain},
      {"bool FileCopy (string SrcUrl, string DstUrl)", Wrap<Copy>,
       "Copies a file, by path or URL, to a name that is free.", kPlain},
      {"int FileDecompress (string SrcFile, string DstFile)", Wrap<Decompress>,
       "Decompresses a gzip file and returns the size of its contents.", kPlain},
      {"int FileCompress (string SrcFile, string DstFile)", Wrap<Compress>,
       "Compresses a file with gzip and returns the compressed size.", kPlain},
      {"bool FileDelete (string FileUrl, bool fForceDelete)", Wrap<DeleteForced>,
       "Deletes a file, by path or URL, a write-protected one on demand.", kPlain},
      {"bool FileDelete (string FileUrl)", Wrap<Delete>, "Deletes a file, by path or URL.", kPlain},
      {"bool FileIsText (string FilePath)", Wrap<IsText>, "Whether a file looks like text.",
       kPlain},
      {"bool FileExists (string FilePath)", Wrap<Exists>, "Whether there is such a file.", kPlain},
      {"bool FileFind (string FilePath)", Wrap<Exists>, "The same as FileExists.", kPlain},
      {"bool FileSetMode (string FilePath, int)", Wrap<SetMode>,
       "Sets the permission bits of a file.", kPlain},
      {"bool FileSetAttr (string FilePath, int)", Wrap<SetAttr>,
       "Sets or clears the write protection of a file.", kPlain},
      {"int FileGetMode (string FilePath)", Wrap<GetMode>, "The permission bits of a file.",
       kPlain},
      {"int FileGetAttr (string FilePath)", Wrap<GetAttr>, "The attributes of a file.", kPlain},
      {"int FileGetSizeMb (string FilePath)", Wrap<GetSizeMb>,
       "Size of a file in units of 1048576 bytes.", kPlain},
      {"int FileGetSizeKb (string FilePath)", Wrap<GetSizeKb>,
       "Size of a file in units of 1024 bytes.", kPlain},
      {"int FileGetSize (string FilePath)", Wrap<GetSize>, "Size of a file in bytes.", kPlain},
      {"int FileGetCreationSecond (string FilePath)", Wrap<Created<&kel::LocalTime::second>>,
       "Second at which a file was created, local time.", kPlain},
      {"int FileGetCreationMinute (string FilePath)", Wrap<Created<&kel::LocalTime::minute>>,
       "Minute at which a file was created, local time.", kPlain},
      {"int FileGetCreationHour (string FilePath)", Wrap<Created<&kel::LocalTime::hour>>,
       "Hour at which a file was created, local time.", kPlain},
      {"int FileGetCreationDay (string FilePath)", Wrap<Created<&kel::LocalTime::day>>,
       "Day at which a file was created, local time.", kPlain},
      {"int FileGetCreationMonth (string FilePath)", Wrap<Created<&kel::LocalTime::month>>,
       "Month at which a file was created, local time.", kPlain},
      {"int FileGetCreationYear (string FilePath)", Wrap<Created<&kel::LocalTime::year>>,
       "Year at which a file was created, local time.", kPlain},
      {"int FileGetSecond (string FilePath)", Wrap<Changed<&kel::LocalTime::second>>,
       "Second at which a file was last changed, local time.", kPlain},
      {"int FileGetMinute (string FilePath)", Wrap<Changed<&kel::LocalTime::minute>>,
       "Minute at which a file was last changed, local time.", kPlain},
      {"int FileGetHour (string FilePath)", Wrap<Changed<&kel::LocalTime::hour>>,
       "Hour at which a file was last changed, local time.", kPlain},
      {"int FileGetDay (string FilePath)", Wrap<Changed<&kel::LocalTime::day>>,
       "Day at which a file was last changed, local time.", kPlain},
      {"int FileGetMonth (string FilePath)", Wrap<Changed<&kel::LocalTime::month>>,
       "Month at which a file was last changed, local time.", kPlain},
      {"int FileGetYear (string FilePath)", Wrap<Changed<&kel::LocalTime::year>>,
       "Year at which a file was last changed, local time.", kPlain},
      {"", nullptr, "", {}},
  };
  return list;
}

}  // namespace

int32_t CodeOf(Call& call, NetError error) {
  const KelString& name = Errors()[static_cast<size_t>(error)].name;
  const Variable* code = call.Context().GetVariable(name, VARLIST_CONSTANT);
  return code != nullptr ? code->GetIntegerValue() : ERR_FUNCFAILED;
}

}  // namespace tamber::files

const FUNCMOD_REGISTRATION* GetFileModule() {
  static const FUNCMOD_REGISTRATION record[] = {
      {FUNCMOD_OBJECTS, tamber::files::HandleTypes()},
      {FUNCMOD_ERRORS, tamber::files::Errors()},
      {FUNCMOD_FUNCTIONS, tamber::files::Functions()},
      {FUNCMOD_END, nullptr},
  };
  return record;
}
