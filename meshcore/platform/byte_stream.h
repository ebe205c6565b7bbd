#pragma once
// Byte streams under an archive: a whole file in memory or a growable memory block.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace meshcore {

class CByteStream {
public:
  virtual ~CByteStream() = default;
  // Reads up to n bytes; returns how many were read (0 at the end).
  virtual std::size_t Read(void* dst, std::size_t n) = 0;
  // Writes n bytes or throws CFileException.
  virtual void Write(const void* src, std::size_t n) = 0;
  // Bytes between the position and the end; used to refuse counts the stream cannot hold.
  virtual std::uint64_t Remaining() const = 0;
  virtual std::uint64_t GetPosition() const = 0;
  virtual void Seek(std::uint64_t pos) = 0;
  virtual void Flush() {}
  virtual std::string GetFilePath() const { return {}; }
};

// A memory block, readable and writable; used for archives in memory and tests.
class CMemFile : public CByteStream {
public:
  CMemFile() = default;
  CMemFile(const void* data, std::size_t n);
  explicit CMemFile(std::vector<std::uint8_t> data) : m_data(std::move(data)) {}

  std::size_t Read(void* dst, std::size_t n) override;
  void Write(const void* src, std::size_t n) override;
  std::uint64_t Remaining() const override { return m_data.size() - m_pos; }
  std::uint64_t GetPosition() const override { return m_pos; }
  void Seek(std::uint64_t pos) override;

  const std::vector<std::uint8_t>& Data() const { return m_data; }
  std::vector<std::uint8_t> Detach();

private:
  std::vector<std::uint8_t> m_data;
  std::size_t m_pos = 0;
};

// A disk file through stdio. Opened for writing, it writes to a temporary file
// beside the target and renames it over the target on a successful Close, so a
// failed save never destroys the existing file.
class CStdioFile : public CByteStream {
public:
  enum OpenFlags { modeRead = 0, modeWrite = 1 };
  CStdioFile() = default;
  ~CStdioFile() override; // abandons an unfinished write
  CStdioFile(const CStdioFile&) = delete;
  CStdioFile& operator=(const CStdioFile&) = delete;

  // Returns false and sets the cause (a CFileException cause) on failure.
  bool Open(const std::string& path, int mode, int* cause = nullptr);
  // Commits a write (rename over the target); throws CFileException on failure.
  void Close();
  // Drops a write in progress: the temporary file is removed, the target untouched.
  void Abort();
  bool IsOpen() const { return m_fp != nullptr; }

  std::size_t Read(void* dst, std::size_t n) override;
  void Write(const void* src, std::size_t n) override;
  std::uint64_t Remaining() const override;
  std::uint64_t GetPosition() const override;
  void Seek(std::uint64_t pos) override;
  void Flush() override;
  std::string GetFilePath() const override { return m_path; }
  std::uint64_t GetLength() const;
  // Reads one line without its "\n" (and "\r\n"); false at the end of the file.
  bool ReadString(std::string& line);
  // The CFileException cause of the first failed write (none when all went well).
  int GetWriteError() const { return m_writeError; }
  // Maps an errno value to a CFileException cause.
  static int CauseFromErrno(int err);

private:
  std::FILE* m_fp = nullptr;
  std::string m_path;
  std::string m_tempPath;
  std::uint64_t m_length = 0;
  bool m_writing = false;
  bool m_failed = false;
  int m_writeError = 0;

  void RecordWriteError(int err);
  void CloseHandle();
};

} // namespace meshcore
