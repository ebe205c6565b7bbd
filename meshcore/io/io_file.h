#pragma once
// The one object through which codecs touch files: opening with a message to
// the user on failure (unless silent), bytes, fixed-width values in either byte
// order, lines of text, seeks, optional whole-file loading, and a small
// directory walker for numbered series.
//
// Files opened for writing are written to a temporary file beside the target
// and renamed over it on a successful close: a failed save (disk full, I/O
// error) leaves the previous file as it was, and GetWriteError tells why.

#include "meshcore/platform/byte_stream.h"

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace meshcore {

// Swaps byte i with byte size-1-i: one value between byte orders.
void ReverseBuffer(void* buffer, int size);

// Directory search results, sorted by name so that walks are reproducible.
class CFileFinder {
public:
  struct Entry {
    std::string path; // full name
    std::string name; // last component
    bool directory = false;
  };
  // pattern: folder, then a name in which "*" matches any run and "?" any one
  // character, without regard to case; "*.*" matches every name.
  bool Start(const std::string& pattern);
  // Moves to the next entry; false when it was the last one.
  bool Next();
  const Entry& Current() const { return m_entries[m_index]; }
  bool IsDots() const { return Current().name == "." || Current().name == ".."; }

  static bool Matches(const std::string& name, const std::string& pattern);

private:
  std::vector<Entry> m_entries;
  std::size_t m_index = 0;
  bool m_started = false;
};

class IoFile {
public:
  enum { typeBinary = 0x8000, typeText = 0x4000 };
  static constexpr std::uint64_t kMaxInMemorySize = 102400000; // larger files are read from disk

  IoFile();
  IoFile(int silent, int inMemory);
  // Shallow: both objects then use the same open streams.
  IoFile(const IoFile& other) = default;
  IoFile& operator=(const IoFile& other) = default;
  virtual ~IoFile();

  int OpenFile(const char* name, int readMode);
  int OpenFile(const std::string& name, int readMode) { return OpenFile(name.c_str(), readMode); }
  void CloseFile();
  void DeleteFiles();
  void SetTextMode() { m_openFlags = typeText; }
  int IsTextMode() const { return m_openFlags == typeText; }

  int FileRead(void* buffer, unsigned count);
  void FileWrite(const void* buffer, unsigned count);
  void WriteChar(char value) { FileWrite(&value, 1); }
  void WriteShort(short value) { FileWrite(&value, sizeof value); }
  void WriteInt(int value) { FileWrite(&value, sizeof value); }
  void WriteFloat(float value) { FileWrite(&value, sizeof value); }

  // Big-endian values: one of count bytes, or count values of size bytes each.
  int FileReverseRead(void* buffer, unsigned count);
  int FileReverseRead(void* buffer, unsigned count, unsigned size);
  // The caller's buffer is left untouched.
  void FileReverseWrite(const void* buffer, unsigned count);
  void FileReverseWrite(const void* buffer, unsigned count, unsigned size);

  // Lines come from the disk file only (never from the in-memory copy).
  int ReadString(std::string& line);
  void WriteString(const char* text);
  void WriteString(const std::string& text) { WriteString(text.c_str()); }

  // from: 0 start, 1 current position, 2 end (offset taken as signed then).
  int FileSeek(std::uint64_t offset, unsigned from);
  std::uint64_t FileGetPosition();
  std::uint64_t FileGetLength();

  CByteStream* GetCFile() const { return m_activeFile; }
  // The disk file object (stdio-backed).
  CStdioFile* GetFileStream() const { return m_diskFile.get(); }
  CFileFinder* GetFileFinder() const { return m_finder.get(); }
  std::string GetFilePath() const;
  std::string GetName() const;
  const std::string& GetFileName() const { return m_fileName; }

  int IsSilent() const { return m_silent; }
  void SetSilent(int silent) { m_silent = silent; }
  int IsInMemory() const { return m_inMemory; }
  int IsOpen() const { return m_activeFile != nullptr; }
  // The CFileException cause of the first failed write or commit of the last
  // file opened for writing (0 when it went well).
  int GetWriteError() const { return m_writeError; }

  // Shows the open-failure message for e (nothing when silent).
  void ReportError(const std::exception* e);

  int FindFileOpen(const char* path, const char* filter);
  int FindFileNext(std::string& name, int& matches, int nameOnly);
  void FindFileClose();

private:
  void NoteWriteError(int cause);

  int m_inMemory = 0;
  int m_silent = 1;
  int m_readMode = 0;
  std::shared_ptr<CStdioFile> m_diskFile;
  std::shared_ptr<CMemFile> m_memoryFile;
  CByteStream* m_activeFile = nullptr;
  std::string m_fileName;
  unsigned m_openFlags = typeBinary;
  std::shared_ptr<CFileFinder> m_finder;
  int m_findMore = 0;
  std::string m_findExtension;
  int m_writeError = 0;
};

} // namespace meshcore
