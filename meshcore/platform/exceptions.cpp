#include "meshcore/platform/exceptions.h"

namespace meshcore {

const char* CArchiveException::what() const noexcept {
  switch (m_cause) {
  case none:
    return "archive: no error";
  case readOnly:
    return "archive: write to an archive opened for loading";
  case endOfFile:
    return "archive: unexpected end of file";
  case writeOnly:
    return "archive: read from an archive opened for storing";
  case badIndex:
    return "archive: bad object or class index";
  case badClass:
    return "archive: unknown or unexpected class";
  case badSchema:
    return "archive: unsupported schema";
  default:
    return "archive: generic error";
  }
}

const char* CFileException::what() const noexcept {
  switch (m_cause) {
  case none:
    return "file: no error";
  case fileNotFound:
    return "file: not found";
  case badPath:
    return "file: bad path";
  case tooManyOpenFiles:
    return "file: too many open files";
  case accessDenied:
    return "file: access denied";
  case invalidFile:
    return "file: invalid file";
  case removeCurrentDir:
    return "file: cannot remove the current directory";
  case directoryFull:
    return "file: directory full";
  case badSeek:
    return "file: bad seek";
  case hardIO:
    return "file: hardware I/O error";
  case sharingViolation:
    return "file: sharing violation";
  case lockViolation:
    return "file: lock violation";
  case diskFull:
    return "file: disk full";
  case endOfFile:
    return "file: unexpected end of file";
  default:
    return "file: generic error";
  }
}

void ThrowArchiveException(int cause, const std::string& file) {
  throw CArchiveException(cause, file);
}

void ThrowFileException(int cause, const std::string& file) {
  throw CFileException(cause, file);
}

} // namespace meshcore
