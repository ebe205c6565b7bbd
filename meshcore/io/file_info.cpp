#include "meshcore/io/file_info.h"

#include "meshcore/io/file_registry.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

namespace meshcore {

namespace fs = std::filesystem;

namespace {

std::string Lower(std::string s) {
  for (char& c : s)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

} // namespace

std::string CFileInfo::ToNativeSeparators(const std::string& name) {
  std::string out = name;
  std::replace(out.begin(), out.end(), '\\', '/');
  return out;
}

void CFileInfo::SetName(const std::string& name) {
  m_name = ToNativeSeparators(name);
}

std::size_t CFileInfo::DirectoryStart() const {
  const bool drive =
      m_name.size() >= 2 && m_name[1] == ':' && std::isalpha(static_cast<unsigned char>(m_name[0]));
  return drive ? 2 : 0;
}

std::size_t CFileInfo::FileNameStart() const {
  const std::size_t slash = m_name.find_last_of('/');
  return slash == std::string::npos ? DirectoryStart() : slash + 1;
}

std::string CFileInfo::GetDrive() const {
  return m_name.substr(0, DirectoryStart());
}

std::string CFileInfo::GetDirectory() const {
  const std::size_t start = DirectoryStart();
  return m_name.substr(start, FileNameStart() - start);
}

std::string CFileInfo::GetPath() const {
  return m_name.substr(0, FileNameStart());
}

std::string CFileInfo::GetFileName() const {
  return m_name.substr(FileNameStart());
}

std::string CFileInfo::GetExtension() const {
  return fs::path(GetFileName()).extension().string();
}

std::string CFileInfo::GetNameWithoutExt() const {
  const std::string file = GetFileName();
  return file.substr(0, file.size() - GetExtension().size());
}

bool CFileInfo::IsExtension(const std::string& ext) const {
  std::string want = Lower(ext);
  if (!want.empty() && want[0] != '.')
    want.insert(want.begin(), '.');
  return Lower(GetExtension()) == want;
}

void CFileInfo::SetExtension(const std::string& ext) {
  m_name.resize(m_name.size() - GetExtension().size());
  if (ext.empty())
    return;
  if (ext[0] != '.')
    m_name += '.';
  m_name += ext;
}

void CFileInfo::SetPath(const std::string& dir) {
  std::string path = ToNativeSeparators(dir);
  fileSlashTerminate(path);
  m_name = path + GetFileName();
}

void CFileInfo::SetFileName(const std::string& fileName) {
  m_name = GetPath() + ToNativeSeparators(fileName);
}

int CFileInfo::GetDigitInfo(const std::string& name, std::string& prefix, std::string& digits) {
  std::size_t end = name.size();
  while (end > 0 && std::isdigit(static_cast<unsigned char>(name[end - 1])))
    --end;
  prefix = name.substr(0, end);
  digits = name.substr(end);
  return static_cast<int>(digits.size());
}

int CFileInfo::GetDigitInfo(std::string& prefix, std::string& digits) const {
  return GetDigitInfo(GetNameWithoutExt(), prefix, digits);
}

unsigned CFileInfo::GetClass() const {
  return fileGetClass(GetExtension());
}
unsigned CFileInfo::GetKindOf() const {
  return fileGetKindOf(GetExtension());
}
unsigned CFileInfo::GetProperties() const {
  return fileGetProperties(GetExtension());
}
unsigned CFileInfo::GetLoader() const {
  return fileGetLoader(GetExtension());
}
unsigned CFileInfo::GetSaver() const {
  return fileGetSaver(GetExtension());
}

bool CFileInfo::Exists() const {
  std::error_code ec;
  return !m_name.empty() && fs::exists(m_name, ec);
}

bool CFileInfo::IsDirectory() const {
  std::error_code ec;
  return !m_name.empty() && fs::is_directory(m_name, ec);
}

std::uint64_t CFileInfo::GetLength() const {
  std::error_code ec;
  const auto size = fs::file_size(m_name, ec);
  return ec ? 0 : static_cast<std::uint64_t>(size);
}

void fileSlashTerminate(std::string& path) {
  if (!path.empty() && path.back() != '/' && path.back() != '\\')
    path += '/';
}

} // namespace meshcore
