#pragma once
// Failures of the stream and serialisation layer. They are caught at the file
// read/save boundary; nothing above the archive layer throws on its own.

#include <exception>
#include <string>

namespace meshcore {

class CException : public std::exception {
public:
  const char* what() const noexcept override { return "meshcore exception"; }
};

class CArchiveException : public CException {
public:
  enum Cause {
    none = 0,
    generic = 1,
    readOnly = 2,
    endOfFile = 3,
    writeOnly = 4,
    badIndex = 5,
    badClass = 6,
    badSchema = 7
  };
  explicit CArchiveException(int cause = none, std::string file = {})
      : m_cause(cause), m_strFileName(std::move(file)) {}
  const char* what() const noexcept override;
  int m_cause;
  std::string m_strFileName;
};

class CFileException : public CException {
public:
  enum Cause {
    none = 0,
    generic = 1,
    fileNotFound = 2,
    badPath = 3,
    tooManyOpenFiles = 4,
    accessDenied = 5,
    invalidFile = 6,
    removeCurrentDir = 7,
    directoryFull = 8,
    badSeek = 9,
    hardIO = 10,
    sharingViolation = 11,
    lockViolation = 12,
    diskFull = 13,
    endOfFile = 14
  };
  explicit CFileException(int cause = none, std::string file = {})
      : m_cause(cause), m_strFileName(std::move(file)) {}
  const char* what() const noexcept override;
  int m_cause;
  std::string m_strFileName;
};

class CMemoryException : public CException {
public:
  const char* what() const noexcept override { return "out of memory"; }
};

// The user cancelled the running operation.
class CUserException : public CException {
public:
  const char* what() const noexcept override { return "operation cancelled"; }
};

class CInvalidArgException : public CException {
public:
  const char* what() const noexcept override { return "invalid argument"; }
};

[[noreturn]] void ThrowArchiveException(int cause, const std::string& file = {});
[[noreturn]] void ThrowFileException(int cause, const std::string& file = {});

} // namespace meshcore
