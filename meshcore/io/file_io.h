#pragma once
// One input/output operation: file name and type, caller flags, per-format
// parameters, the last error and its text, and the codec in use.

#include "meshcore/containers/custom_data.h"
#include "meshcore/io/file_info.h"
#include "meshcore/platform/host.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace meshcore {

class CFileParser;

enum IO_FILE_RESULT : std::int32_t {
  IO_FILE_OK = 1,
  IO_FILE_CANT_OPEN = -1,
  IO_FILE_UNKNOWN_TYPE = -2,
  IO_FILE_BAD_FORMAT = -3,
  IO_FILE_NO_MEMORY = -4,
  IO_FILE_DISK_FULL = -5,
  IO_FILE_ACCESS_DENIED = -6,
  IO_FILE_EMPTY = -7,
  IO_FILE_CANT_SAVE_OPTIONS = -8,
  IO_FILE_CANCELLED = -9
};

enum FILE_PARSER_FLAGS : std::uint32_t {
  FILE_PARSER_LOADING = 1,
  FILE_PARSER_SILENT = 2,
  FILE_PARSER_NO_PREFS = 8
};

enum IoShowDialog { IO_NO_DIALOG = 0, IO_HAS_OPTIONS = 1, IO_MUST_SHOW_DIALOG = 2 };

// Called by GetFileList for each candidate; non-zero keeps the name.
using FileListFilter = int (*)(const std::string& name, void* userData);

class CFileIo {
public:
  CFileIo(const std::string& name, unsigned flags, HostWindow parent = nullptr);
  // Asks about a format without a file: the name is the class's main extension.
  CFileIo(unsigned classCode, unsigned flags, HostWindow parent = nullptr);
  // Copies name, flags, parameters, error and window; never the codec.
  CFileIo(const CFileIo& other);
  CFileIo& operator=(const CFileIo& other);
  virtual ~CFileIo();

  // The base only closes the current codec and returns null.
  virtual CFileParser* InitParser();
  void CloseParser();

  std::string GetCompleteName() const;
  std::string GetPath() const;
  std::string GetExtension() const;
  std::string GetNameWithoutExt() const;
  std::string GetCurrentCompleteFileName() const { return GetCompleteName(); }
  std::string GetCurrentFilePath() const { return GetPath(); }
  std::string GetCurrentShortFileName() const;
  void SetNewFileName(const std::string& name);

  unsigned GetClass() const;
  unsigned GetKindOf() const;
  unsigned GetProperties() const;
  // The loader's class code when loading, else the saver's.
  unsigned GetParser() const;
  CCustomData& GetCustomData() { return m_customData; }
  const CCustomData& GetCustomData() const { return m_customData; }
  HostWindow GetParentWnd() const { return m_parentWnd; }

  void SetFlag(unsigned flag, int on);
  int IsFlagSet(unsigned flag) const { return (m_flags & flag) == flag ? 1 : 0; }
  int IsLoading() const { return IsFlagSet(FILE_PARSER_LOADING); }
  void SetSilentMode(int on) { SetFlag(FILE_PARSER_SILENT, on); }
  int IsSilentMode() const { return IsFlagSet(FILE_PARSER_SILENT); }
  unsigned GetFlags() const { return m_flags; }

  int GetIoError() const { return m_ioError; }
  void SetIoError(int error) { m_ioError = error; }
  void SetErrorText(const std::string& text) { m_errorText = text; }
  // Where and why the last operation failed ("PTAG at byte 1234: polygon 70000
  // of 512"), empty when the codec had nothing to add. Shown after the text.
  const std::string& GetIoErrorDetail() const { return m_errorDetail; }
  void SetIoErrorDetail(const std::string& detail) { m_errorDetail = detail; }
  // The override text when set, else the library's message for the error code.
  std::string GetIoErrorTxt() const;
  // The message of an error code in the active language.
  static std::string GetIoErrorTxt(int error);
  int ReportIoError();
  int ReportIoError(const std::string& text);

  static IoShowDialog HasDialog(unsigned classCode, int loading);
  int FileDialogBox(int option);

  int SaveIoParameters(int loading, CCustomData& data, unsigned classCode);
  int LoadIoParameters(int loading, CCustomData& data, unsigned classCode);
  // Full name of the per-user codec parameters file ("<application>io.prefs").
  static std::string GetIoPrefsFile();

  int GetFileList(std::vector<std::string>& out, FileListFilter filter, void* userData,
                  int nameOnly);
  // result must hold kMaxPath characters; the name found is cut to fit.
  int FindMatchingFile(char* result, const char* name, const char* extension);
  static constexpr std::size_t kMaxPath = 4096;

protected:
  // The extension that names the file's type.
  std::string GetTypeExtension() const;

  CCustomData m_customData;
  CFileInfo m_fileInfo;
  unsigned m_flags;
  int m_ioError = IO_FILE_OK;
  std::string m_errorText;
  std::string m_errorDetail;
  std::unique_ptr<CFileParser> m_parser;
  HostWindow m_parentWnd;
};

} // namespace meshcore
