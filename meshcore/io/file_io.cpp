#include "meshcore/io/file_io.h"

#include "meshcore/io/file_parser.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/io/io_file.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/platform/user_paths.h"

#include <algorithm>
#include <cstring>

namespace meshcore {

namespace {

constexpr unsigned kParametersClassTag = 0x494F434C; // 'IOCL'

} // namespace

CFileIo::CFileIo(const std::string& name, unsigned flags, HostWindow parent)
    : m_fileInfo(name), m_flags(flags), m_parentWnd(parent) {}

CFileIo::CFileIo(unsigned classCode, unsigned flags, HostWindow parent)
    : m_fileInfo(fileGetMainExtension(classCode)), m_flags(flags), m_parentWnd(parent) {}

CFileIo::CFileIo(const CFileIo& other)
    : m_customData(other.m_customData), m_fileInfo(other.m_fileInfo), m_flags(other.m_flags),
      m_ioError(other.m_ioError), m_errorText(other.m_errorText),
      m_errorDetail(other.m_errorDetail), m_parentWnd(other.m_parentWnd) {}

CFileIo& CFileIo::operator=(const CFileIo& other) {
  if (this != &other) {
    m_customData = other.m_customData;
    m_fileInfo = other.m_fileInfo;
    m_flags = other.m_flags;
    m_ioError = other.m_ioError;
    m_errorText = other.m_errorText;
    m_errorDetail = other.m_errorDetail;
    m_parentWnd = other.m_parentWnd;
  }
  return *this;
}

CFileIo::~CFileIo() {
  CloseParser();
}

CFileParser* CFileIo::InitParser() {
  CloseParser();
  return nullptr;
}

void CFileIo::CloseParser() {
  m_parser.reset();
}

std::string CFileIo::GetCompleteName() const {
  return m_fileInfo.GetCompleteName();
}
std::string CFileIo::GetPath() const {
  return m_fileInfo.GetPath();
}
std::string CFileIo::GetExtension() const {
  return m_fileInfo.GetExtension();
}
std::string CFileIo::GetNameWithoutExt() const {
  return m_fileInfo.GetNameWithoutExt();
}
std::string CFileIo::GetCurrentShortFileName() const {
  return m_fileInfo.GetFileName();
}
void CFileIo::SetNewFileName(const std::string& name) {
  m_fileInfo.SetName(name);
}

std::string CFileIo::GetTypeExtension() const {
  std::string ext = m_fileInfo.GetExtension();
  if (ext.empty()) {
    // A bare extension (".obj", from the class constructor) has no extension of
    // its own as a file name, but names the type all the same.
    std::string name = m_fileInfo.GetFileName();
    if (name.size() > 1 && name[0] == '.')
      ext = name;
  }
  return ext;
}

unsigned CFileIo::GetClass() const {
  return fileGetClass(GetTypeExtension());
}
unsigned CFileIo::GetKindOf() const {
  return fileGetKindOf(GetTypeExtension());
}
unsigned CFileIo::GetProperties() const {
  return fileGetProperties(GetTypeExtension());
}
unsigned CFileIo::GetParser() const {
  return IsLoading() ? fileGetLoader(GetTypeExtension()) : fileGetSaver(GetTypeExtension());
}

void CFileIo::SetFlag(unsigned flag, int on) {
  if (on)
    m_flags |= flag;
  else
    m_flags &= ~flag;
}

std::string CFileIo::GetIoErrorTxt() const {
  return m_errorText.empty() ? GetIoErrorTxt(m_ioError) : m_errorText;
}

std::string CFileIo::GetIoErrorTxt(int error) {
  switch (error) {
  case IO_FILE_CANT_OPEN:
    return LoadString(IDS_IO_CANNOT_OPEN);
  case IO_FILE_UNKNOWN_TYPE:
    return LoadString(IDS_IO_UNKNOWN_FILE_TYPE);
  case IO_FILE_BAD_FORMAT:
    return LoadString(IDS_IO_BAD_FORMAT);
  case IO_FILE_NO_MEMORY:
    return LoadString(IDS_IO_NO_MEMORY);
  case IO_FILE_DISK_FULL:
    return LoadString(IDS_IO_DISK_FULL);
  case IO_FILE_ACCESS_DENIED:
    return LoadString(IDS_IO_ACCESS_DENIED);
  case IO_FILE_CANT_SAVE_OPTIONS:
    return LoadString(IDS_IO_CANT_SAVE_OPTIONS);
  case IO_FILE_CANCELLED:
    return LoadString(IDS_IO_CANCELED);
  default: // -7 and every code without a message of its own
    return LoadString(IDS_IO_UNKNOWN_ERROR);
  }
}

int CFileIo::ReportIoError() {
  if (!IsSilentMode())
    GetMeshcoreHost().MessageBox(m_parentWnd, GetIoErrorTxt(), LoadString(IDS_IO_ERROR_TITLE),
                                 CMeshcoreHost::iconExclamation);
  return 1;
}

int CFileIo::ReportIoError(const std::string& text) {
  m_errorText = text;
  return ReportIoError();
}

IoShowDialog CFileIo::HasDialog(unsigned classCode, int loading) {
  CFileExt ext;
  if (!fileGetExtensionInfo(classCode, ext))
    return IO_NO_DIALOG;
  const unsigned props = ext.GetContents();
  if (loading) {
    if (props & FILE_READ_DIALOG)
      return IO_MUST_SHOW_DIALOG;
    if (props & FILE_READ_OPTIONS)
      return IO_HAS_OPTIONS;
  } else {
    if (props & FILE_WRITE_DIALOG)
      return IO_MUST_SHOW_DIALOG;
    if (props & FILE_WRITE_OPTIONS)
      return IO_HAS_OPTIONS;
  }
  return IO_NO_DIALOG;
}

int CFileIo::FileDialogBox(int /*option*/) {
  unsigned count = 0;
  CFileExt* types = fileGetRegisteredFiles(count);
  const std::string filter = fileGetFilterText(types, count, true);
  fileFreeRegisteredFiles(types);

  std::string name = GetCompleteName();
  CMeshcoreHost& host = GetMeshcoreHost();
  const bool chosen = IsLoading() ? host.OpenFileDialog(m_parentWnd, name, filter)
                                  : host.SaveFileDialog(m_parentWnd, name, filter);
  if (!chosen)
    return CMeshcoreHost::answerCancel;
  SetNewFileName(name);
  return CMeshcoreHost::answerOk;
}

std::string CFileIo::GetIoPrefsFile() {
  std::string app = CFileInfo(GetMeshcoreHost().GetApplicationName()).GetNameWithoutExt();
  return GetUserPreferencesPath(1) + app + "io.prefs";
}

int CFileIo::SaveIoParameters(int loading, CCustomData& data, unsigned classCode) {
  if (IsFlagSet(FILE_PARSER_NO_PREFS))
    return 1;
  data.SetInt(kParametersClassTag, static_cast<int>(classCode));
  return data.SaveToPrefs(GetIoPrefsFile(), classCode, loading ? 1u : 0u);
}

int CFileIo::LoadIoParameters(int loading, CCustomData& data, unsigned classCode) {
  if (IsFlagSet(FILE_PARSER_NO_PREFS))
    return 1;
  return data.LoadFromPrefs(GetIoPrefsFile(), classCode, loading ? 1u : 0u);
}

int CFileIo::GetFileList(std::vector<std::string>& out, FileListFilter filter, void* userData,
                         int nameOnly) {
  std::string prefix, digits;
  m_fileInfo.GetDigitInfo(prefix, digits);
  const std::string extension = m_fileInfo.GetExtension();

  IoFile finder(1, 0);
  std::vector<std::string> found;
  if (finder.FindFileOpen((m_fileInfo.GetPath() + prefix + extension).c_str(), nullptr)) {
    std::string name;
    int matches = 0;
    while (finder.FindFileNext(name, matches, nameOnly)) {
      if (finder.GetFileFinder()->Current().directory)
        continue; // a folder named like the series
      if (matches && CFileInfo(name).IsExtension(extension))
        found.push_back(name);
    }
    finder.FindFileClose();
  }
  if (found.empty())
    return 0;
  // Last found first: callers rely on this order.
  for (auto it = found.rbegin(); it != found.rend(); ++it)
    if (!filter || filter(*it, userData))
      out.push_back(*it);
  return out.empty() ? 0 : 1;
}

int CFileIo::FindMatchingFile(char* result, const char* name, const char* extension) {
  if (!result || !name)
    return 0;
  const CFileInfo info(name);
  std::string prefix, digits;
  const int form = info.GetDigitInfo(prefix, digits);

  std::string ext = extension && *extension ? std::string(extension) : info.GetExtension();
  if (!ext.empty() && ext.front() != '.')
    ext.insert(ext.begin(), '.');

  IoFile finder(1, 0);
  if (!finder.FindFileOpen((info.GetPath() + prefix + ext).c_str(), nullptr))
    return 0;
  std::string entry;
  int matches = 0;
  int found = 0;
  while (finder.FindFileNext(entry, matches, 0)) {
    if (finder.GetFileFinder()->Current().directory)
      continue;
    std::string p, d;
    if (CFileInfo(entry).GetDigitInfo(p, d) == form) {
      // The caller's buffer is sized for a path; never write past one.
      const std::size_t n = std::min(entry.size(), kMaxPath - 1);
      std::memcpy(result, entry.data(), n);
      result[n] = '\0';
      found = 1;
      break;
    }
  }
  finder.FindFileClose();
  return found;
}

} // namespace meshcore
