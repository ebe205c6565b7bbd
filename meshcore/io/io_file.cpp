#include "meshcore/io/io_file.h"

#include "meshcore/io/file_info.h"
#include "meshcore/platform/exceptions.h"
#include "meshcore/platform/host.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>

namespace meshcore {

namespace fs = std::filesystem;

void ReverseBuffer(void* buffer, int size) {
  auto* bytes = static_cast<std::uint8_t*>(buffer);
  for (int i = 0; i < size / 2; ++i)
    std::swap(bytes[i], bytes[size - 1 - i]);
}

// --- directory search ----------------------------------------------------------

bool CFileFinder::Matches(const std::string& name, const std::string& pattern) {
  if (pattern == "*.*")
    return true;
  // Iterative glob with single-star backtracking; characters compare without case.
  std::size_t n = 0, p = 0, starP = std::string::npos, starN = 0;
  auto same = [](char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
  };
  while (n < name.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || same(pattern[p], name[n]))) {
      ++n;
      ++p;
    } else if (p < pattern.size() && pattern[p] == '*') {
      starP = p++;
      starN = n;
    } else if (starP != std::string::npos) {
      p = starP + 1;
      n = ++starN;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*')
    ++p;
  return p == pattern.size();
}

bool CFileFinder::Start(const std::string& pattern) {
  m_entries.clear();
  m_index = 0;
  m_started = false;
  const CFileInfo info(pattern);
  const std::string dir = info.GetPath();
  const std::string namePattern = info.GetFileName();
  std::error_code ec;
  for (fs::directory_iterator it(dir.empty() ? fs::path(".") : fs::path(dir), ec), end;
       !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (!Matches(name, namePattern))
      continue;
    std::error_code typeError;
    m_entries.push_back({dir + name, name, it->is_directory(typeError)});
  }
  std::sort(m_entries.begin(), m_entries.end(),
            [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return !m_entries.empty();
}

bool CFileFinder::Next() {
  if (m_started)
    ++m_index;
  m_started = true;
  if (m_index >= m_entries.size()) {
    m_index = m_entries.empty() ? 0 : m_entries.size() - 1;
    return false;
  }
  return m_index + 1 < m_entries.size();
}

// --- IoFile --------------------------------------------------------------------

IoFile::IoFile() = default;

IoFile::IoFile(int silent, int inMemory) : m_inMemory(inMemory), m_silent(silent) {}

IoFile::~IoFile() {
  DeleteFiles();
}

void IoFile::NoteWriteError(int cause) {
  if (m_writeError == 0)
    m_writeError = cause ? cause : CFileException::generic;
}

int IoFile::OpenFile(const char* name, int readMode) {
  DeleteFiles();
  m_writeError = 0;
  m_diskFile = std::make_shared<CStdioFile>();
  m_activeFile = m_diskFile.get();
  m_fileName = name ? name : "";
  m_readMode = readMode;

  int cause = CFileException::none;
  bool ok = false;
  if (readMode) {
    ok = m_diskFile->Open(m_fileName, CStdioFile::modeRead, &cause);
    if (ok && m_inMemory) {
      const std::uint64_t length = m_diskFile->GetLength();
      if (length > kMaxInMemorySize) {
        m_inMemory = 0;
      } else {
        try {
          // One allocation of the exact size and one read; the memory stream
          // takes the buffer over without a copy.
          std::vector<std::uint8_t> buffer(static_cast<std::size_t>(length));
          if (m_diskFile->Read(buffer.data(), buffer.size()) != buffer.size()) {
            ok = false;
            cause = CFileException::hardIO;
          } else {
            m_memoryFile = std::make_shared<CMemFile>(std::move(buffer));
            m_activeFile = m_memoryFile.get();
          }
        } catch (const std::bad_alloc&) {
          m_inMemory = 0;
        }
      }
    }
  } else {
    ok = m_diskFile->Open(m_fileName, CStdioFile::modeWrite, &cause);
  }

  if (!ok) {
    DeleteFiles();
    const CFileException failure(cause ? cause : CFileException::generic, m_fileName);
    ReportError(&failure);
    return 0;
  }
  if (!m_silent) {
    CMeshcoreHost& host = GetMeshcoreHost();
    if (HostWindow window = host.GetMainWindow())
      host.BeginWaitCursor(window);
  }
  return 1;
}

void IoFile::CloseFile() {
  try {
    if (!m_silent && m_activeFile) {
      CMeshcoreHost& host = GetMeshcoreHost();
      if (HostWindow window = host.GetMainWindow())
        host.EndWaitCursor(window);
    }
    if (m_inMemory && m_memoryFile) {
      std::vector<std::uint8_t> buffer = m_memoryFile->Detach();
      if (!m_readMode && m_diskFile && m_diskFile->IsOpen() && !buffer.empty())
        m_diskFile->Write(buffer.data(), buffer.size());
    }
  } catch (const CFileException& e) {
    NoteWriteError(e.m_cause);
  } catch (...) {
  }
  DeleteFiles();
}

void IoFile::DeleteFiles() {
  if (m_diskFile && m_diskFile->IsOpen()) {
    try {
      m_diskFile->Close(); // commits a write: the temporary file replaces the target
    } catch (const CFileException& e) {
      NoteWriteError(e.m_cause);
    } catch (...) {
      NoteWriteError(CFileException::generic);
    }
  }
  m_diskFile.reset();
  m_memoryFile.reset();
  m_activeFile = nullptr;
}

int IoFile::FileRead(void* buffer, unsigned count) {
  if (!m_activeFile)
    return 0;
  return m_activeFile->Read(buffer, count) == count ? 1 : 0;
}

void IoFile::FileWrite(const void* buffer, unsigned count) {
  if (!m_activeFile || count == 0)
    return;
  try {
    m_activeFile->Write(buffer, count);
  } catch (const CFileException& e) {
    NoteWriteError(e.m_cause);
  }
}

int IoFile::FileReverseRead(void* buffer, unsigned count) {
  if (!FileRead(buffer, count))
    return 0;
  ReverseBuffer(buffer, static_cast<int>(count));
  return 1;
}

int IoFile::FileReverseRead(void* buffer, unsigned count, unsigned size) {
  const std::uint64_t total = std::uint64_t(count) * size;
  if (!m_activeFile || total > UINT32_MAX)
    return 0;
  if (m_activeFile->Read(buffer, static_cast<std::size_t>(total)) != total)
    return 0;
  auto* bytes = static_cast<std::uint8_t*>(buffer);
  for (unsigned i = 0; i < count; ++i)
    ReverseBuffer(bytes + std::size_t(i) * size, static_cast<int>(size));
  return 1;
}

void IoFile::FileReverseWrite(const void* buffer, unsigned count) {
  FileReverseWrite(buffer, 1, count);
}

void IoFile::FileReverseWrite(const void* buffer, unsigned count, unsigned size) {
  const std::size_t total = std::size_t(count) * size;
  if (total == 0)
    return;
  const auto* src = static_cast<const std::uint8_t*>(buffer);
  std::vector<std::uint8_t> copy(src, src + total);
  for (unsigned i = 0; i < count; ++i)
    ReverseBuffer(copy.data() + std::size_t(i) * size, static_cast<int>(size));
  if (!m_activeFile)
    return;
  try {
    m_activeFile->Write(copy.data(), copy.size());
  } catch (const CFileException& e) {
    NoteWriteError(e.m_cause);
  }
}

int IoFile::ReadString(std::string& line) {
  line.clear();
  if (!m_diskFile || !m_diskFile->IsOpen())
    return 0;
  return m_diskFile->ReadString(line) ? 1 : 0;
}

void IoFile::WriteString(const char* text) {
  if (!m_diskFile || !m_diskFile->IsOpen() || !text)
    return;
  try {
    m_diskFile->Write(text, std::strlen(text));
  } catch (const CFileException& e) {
    NoteWriteError(e.m_cause);
  }
}

int IoFile::FileSeek(std::uint64_t offset, unsigned from) {
  if (!m_activeFile)
    return 1;
  try {
    m_activeFile->Flush();
    const std::uint64_t length = FileGetLength();
    std::int64_t base = 0;
    if (from == 1)
      base = static_cast<std::int64_t>(m_activeFile->GetPosition());
    else if (from == 2)
      base = static_cast<std::int64_t>(length);
    std::int64_t target =
        from == 0 ? static_cast<std::int64_t>(offset) : base + static_cast<std::int64_t>(offset);
    if (target < 0)
      target = 0;
    std::uint64_t position = static_cast<std::uint64_t>(target);
    // A memory block cannot hold a position past its end.
    if (m_activeFile == m_memoryFile.get() && position > length)
      position = length;
    m_activeFile->Seek(position);
  } catch (const CException&) {
  }
  return 1;
}

std::uint64_t IoFile::FileGetPosition() {
  if (!m_activeFile)
    return 0;
  try {
    m_activeFile->Flush();
  } catch (const CFileException& e) {
    NoteWriteError(e.m_cause);
  }
  return m_activeFile->GetPosition();
}

std::uint64_t IoFile::FileGetLength() {
  if (!m_activeFile)
    return 0;
  try {
    m_activeFile->Flush();
  } catch (const CFileException& e) {
    NoteWriteError(e.m_cause);
  }
  if (m_activeFile == m_memoryFile.get())
    return m_memoryFile->Data().size();
  return m_diskFile->GetLength();
}

std::string IoFile::GetFilePath() const {
  return CFileInfo(m_fileName).GetPath();
}

std::string IoFile::GetName() const {
  return CFileInfo(m_fileName).GetFileName();
}

void IoFile::ReportError(const std::exception* e) {
  if (m_silent)
    return;
  // The read/write pairing of the two defaults is the established one.
  unsigned id = m_readMode ? IDP_FAILED_TO_OPEN_DOC : IDP_INVALID_FILENAME;
  if (dynamic_cast<const CUserException*>(e))
    return;
  if (const auto* ae = dynamic_cast<const CArchiveException*>(e)) {
    if (ae->m_cause == CArchiveException::endOfFile ||
        (ae->m_cause >= CArchiveException::badIndex && ae->m_cause <= CArchiveException::badSchema))
      id = IDP_FAILED_INVALID_FORMAT;
  } else if (const auto* fe = dynamic_cast<const CFileException*>(e)) {
    // File exceptions carry a cause but no user text of their own, so the
    // prompt is chosen by cause.
    switch (fe->m_cause) {
    case CFileException::fileNotFound:
    case CFileException::badPath:
      id = IDP_FAILED_INVALID_PATH;
      break;
    case CFileException::accessDenied:
      id = m_readMode ? IDP_FAILED_ACCESS_READ : IDP_FAILED_ACCESS_WRITE;
      break;
    case CFileException::diskFull:
      id = IDP_FAILED_DISK_FULL;
      break;
    default:
      break;
    }
  }
  CMeshcoreHost& host = GetMeshcoreHost();
  host.MessageBox(host.GetMainWindow(), FormatPrompt(LoadString(id), m_fileName),
                  host.GetApplicationName(), CMeshcoreHost::iconExclamation);
}

int IoFile::FindFileOpen(const char* path, const char* filter) {
  const CFileInfo pathInfo(path ? path : "");
  const CFileInfo filterInfo(filter ? filter : "*.*");
  m_finder = std::make_shared<CFileFinder>();
  m_findMore = 1;
  m_findExtension.clear();

  std::string pattern = pathInfo.GetPath() + pathInfo.GetNameWithoutExt() + "*";
  if (pathInfo.HasExtension()) {
    pattern += pathInfo.GetExtension();
  } else {
    m_findExtension = filterInfo.GetExtension();
    pattern += m_findExtension;
  }
  m_findMore = m_finder->Start(pattern) ? 1 : 0;
  return m_findMore;
}

int IoFile::FindFileNext(std::string& name, int& matches, int nameOnly) {
  if (!m_findMore || !m_finder)
    return 0;
  const bool checkExtension = !m_findExtension.empty() && m_findExtension != ".*";
  matches = checkExtension ? 0 : 1;

  m_findMore = m_finder->Next() ? 1 : 0;
  if (m_finder->IsDots())
    return FindFileNext(name, matches, nameOnly);

  const CFileFinder::Entry& entry = m_finder->Current();
  name = entry.path;
  if (entry.directory)
    fileSlashTerminate(name);
  if (!nameOnly && !checkExtension)
    return 1;
  if (nameOnly)
    name = entry.name;
  if (checkExtension) {
    std::string ext = CFileInfo(entry.directory ? std::string() : entry.path).GetExtension();
    std::string want = m_findExtension;
    auto lower = [](std::string& s) {
      for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    };
    lower(ext);
    lower(want);
    matches = ext == want ? 1 : 0;
  }
  return 1;
}

void IoFile::FindFileClose() {
  m_finder.reset();
  m_findMore = 0;
}

} // namespace meshcore
