#include "meshcore/platform/byte_stream.h"

#include "meshcore/platform/exceptions.h"

#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace meshcore {

// ---------------------------------------------------------------------------
// CMemFile

CMemFile::CMemFile(const void* data, std::size_t n) {
  const auto* p = static_cast<const std::uint8_t*>(data);
  if (p && n)
    m_data.assign(p, p + n);
}

std::size_t CMemFile::Read(void* dst, std::size_t n) {
  const std::size_t avail = m_pos < m_data.size() ? m_data.size() - m_pos : 0;
  const std::size_t count = n < avail ? n : avail;
  if (count) {
    std::memcpy(dst, m_data.data() + m_pos, count);
    m_pos += count;
  }
  return count;
}

void CMemFile::Write(const void* src, std::size_t n) {
  if (n == 0)
    return;
  if (n > m_data.max_size() - m_pos)
    ThrowFileException(CFileException::diskFull);
  if (m_pos + n > m_data.size())
    m_data.resize(m_pos + n);
  std::memcpy(m_data.data() + m_pos, src, n);
  m_pos += n;
}

void CMemFile::Seek(std::uint64_t pos) {
  // Seeking past the end would let a hostile offset grow the block.
  if (pos > m_data.size())
    ThrowFileException(CFileException::badSeek);
  m_pos = static_cast<std::size_t>(pos);
}

std::vector<std::uint8_t> CMemFile::Detach() {
  std::vector<std::uint8_t> out = std::move(m_data);
  m_data.clear();
  m_pos = 0;
  return out;
}

// ---------------------------------------------------------------------------
// CStdioFile

int CStdioFile::CauseFromErrno(int err) {
  switch (err) {
  case 0:
    return CFileException::none;
  case ENOENT:
    return CFileException::fileNotFound;
  case ENOTDIR:
  case ENAMETOOLONG:
  case ELOOP:
    return CFileException::badPath;
  case EACCES:
  case EPERM:
  case EROFS:
  case EISDIR:
    return CFileException::accessDenied;
  case EMFILE:
  case ENFILE:
    return CFileException::tooManyOpenFiles;
  case ENOSPC:
  case EDQUOT:
  case EFBIG:
    return CFileException::diskFull;
  case EIO:
    return CFileException::hardIO;
  default:
    return CFileException::generic;
  }
}

CStdioFile::~CStdioFile() {
  Abort();
}

void CStdioFile::CloseHandle() {
  if (m_fp)
    std::fclose(m_fp);
  m_fp = nullptr;
  m_writing = false;
  m_length = 0;
}

bool CStdioFile::Open(const std::string& path, int mode, int* cause) {
  Abort();
  m_path = path;
  m_tempPath.clear();
  m_failed = false;
  m_writeError = CFileException::none;
  auto fail = [&](int c) {
    if (cause)
      *cause = c;
    return false;
  };
  if (path.empty())
    return fail(CFileException::badPath);

  struct stat st {};
  const bool exists = ::stat(path.c_str(), &st) == 0;
  if (exists && S_ISDIR(st.st_mode))
    return fail(CFileException::accessDenied);

  if ((mode & modeWrite) == 0) {
    std::FILE* fp = std::fopen(path.c_str(), "rb");
    if (!fp)
      return fail(CauseFromErrno(errno));
    m_fp = fp;
    m_length = exists ? static_cast<std::uint64_t>(st.st_size) : 0;
    m_writing = false;
    if (cause)
      *cause = CFileException::none;
    return true;
  }

  // Write beside the target so that the final rename stays on one file system.
  static std::atomic<unsigned> counter{0};
  int fd = -1;
  for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
    m_tempPath =
        path + ".~" + std::to_string(::getpid()) + "_" + std::to_string(counter++) + ".tmp";
    fd = ::open(m_tempPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST)
      break;
  }
  if (fd < 0) {
    const int err = errno;
    m_tempPath.clear();
    // A missing folder is a bad path when writing, not a missing file.
    return fail(err == ENOENT ? CFileException::badPath : CauseFromErrno(err));
  }
  if (exists)
    (void)::fchmod(fd, st.st_mode & 07777);
  m_fp = ::fdopen(fd, "wb");
  if (!m_fp) {
    const int err = errno;
    ::close(fd);
    ::unlink(m_tempPath.c_str());
    m_tempPath.clear();
    return fail(CauseFromErrno(err));
  }
  m_writing = true;
  if (cause)
    *cause = CFileException::none;
  return true;
}

void CStdioFile::RecordWriteError(int err) {
  if (!m_failed) {
    m_failed = true;
    m_writeError = CauseFromErrno(err);
    if (m_writeError == CFileException::none)
      m_writeError = CFileException::generic;
  }
}

void CStdioFile::Close() {
  if (!m_fp)
    return;
  if (!m_writing) {
    CloseHandle();
    return;
  }
  if (!m_failed && std::fflush(m_fp) != 0)
    RecordWriteError(errno);
  if (std::fclose(m_fp) != 0)
    RecordWriteError(errno);
  m_fp = nullptr;
  m_writing = false;
  if (!m_failed && std::rename(m_tempPath.c_str(), m_path.c_str()) != 0)
    RecordWriteError(errno);
  if (m_failed) {
    ::unlink(m_tempPath.c_str());
    m_tempPath.clear();
    ThrowFileException(m_writeError, m_path);
  }
  m_tempPath.clear();
}

void CStdioFile::Abort() {
  if (!m_fp)
    return;
  const bool writing = m_writing;
  CloseHandle();
  if (writing && !m_tempPath.empty())
    ::unlink(m_tempPath.c_str());
  m_tempPath.clear();
}

std::size_t CStdioFile::Read(void* dst, std::size_t n) {
  if (!m_fp || m_writing || n == 0)
    return 0;
  return std::fread(dst, 1, n, m_fp);
}

void CStdioFile::Write(const void* src, std::size_t n) {
  if (!m_fp || !m_writing)
    ThrowFileException(CFileException::accessDenied, m_path);
  if (m_failed)
    ThrowFileException(m_writeError, m_path);
  if (n && std::fwrite(src, 1, n, m_fp) != n) {
    RecordWriteError(errno);
    ThrowFileException(m_writeError, m_path);
  }
}

std::uint64_t CStdioFile::GetPosition() const {
  if (!m_fp)
    return 0;
  const off_t pos = ::ftello(m_fp);
  return pos < 0 ? 0 : static_cast<std::uint64_t>(pos);
}

std::uint64_t CStdioFile::Remaining() const {
  if (!m_fp || m_writing)
    return 0;
  const std::uint64_t pos = GetPosition();
  return pos < m_length ? m_length - pos : 0;
}

std::uint64_t CStdioFile::GetLength() const {
  if (!m_fp)
    return 0;
  if (!m_writing)
    return m_length;
  struct stat st {};
  std::fflush(m_fp);
  return ::fstat(::fileno(m_fp), &st) == 0 ? static_cast<std::uint64_t>(st.st_size) : 0;
}

void CStdioFile::Seek(std::uint64_t pos) {
  if (!m_fp || pos > static_cast<std::uint64_t>(INT64_MAX) ||
      ::fseeko(m_fp, static_cast<off_t>(pos), SEEK_SET) != 0)
    ThrowFileException(CFileException::badSeek, m_path);
}

void CStdioFile::Flush() {
  if (m_fp && m_writing && !m_failed && std::fflush(m_fp) != 0) {
    RecordWriteError(errno);
    ThrowFileException(m_writeError, m_path);
  }
}

bool CStdioFile::ReadString(std::string& line) {
  line.clear();
  if (!m_fp || m_writing)
    return false;
  int c = std::getc(m_fp);
  if (c == EOF)
    return false;
  while (c != EOF && c != '\n') {
    line += static_cast<char>(c);
    c = std::getc(m_fp);
  }
  if (!line.empty() && line.back() == '\r')
    line.pop_back();
  return true;
}

} // namespace meshcore
