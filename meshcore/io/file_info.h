#pragma once
// A file name and its parts: drive, directory, name, extension, and the
// trailing digits of numbered series (frame001.lwo, frame002.lwo, ...).
//
// Names may come from files written on other systems, so both "/" and "\\"
// separate directories; the stored name uses the native "/". A leading letter
// and colon ("C:") is kept apart as the drive so that such names split the same
// way everywhere.

#include <cstdint>
#include <string>

namespace meshcore {

class CFileInfo {
public:
  CFileInfo() = default;
  CFileInfo(const std::string& name) { SetName(name); }
  CFileInfo(const char* name) { SetName(name ? name : ""); }

  void SetName(const std::string& name);
  const std::string& GetCompleteName() const { return m_name; }
  bool IsEmpty() const { return m_name.empty(); }

  std::string GetDrive() const;     // "C:" or empty
  std::string GetDirectory() const; // with its trailing "/", without the drive
  std::string GetPath() const;      // drive and directory: everything before the file name
  std::string GetFileName() const;  // name and extension
  std::string GetName() const { return GetFileName(); }
  std::string GetNameWithoutExt() const;
  std::string GetExtension() const; // with its dot, or empty
  bool HasExtension() const { return !GetExtension().empty(); }
  // Case-insensitive; ext with or without its dot.
  bool IsExtension(const std::string& ext) const;

  // Replaces (or adds, or with an empty ext removes) the extension.
  void SetExtension(const std::string& ext);
  // Keeps the file name, moves it to dir.
  void SetPath(const std::string& dir);
  // Keeps the folder, replaces name and extension.
  void SetFileName(const std::string& fileName);

  // Splits the name (without extension) into prefix and trailing digits and
  // returns the number of digits: "walk012" gives "walk", "012" and 3.
  int GetDigitInfo(std::string& prefix, std::string& digits) const;
  static int GetDigitInfo(const std::string& name, std::string& prefix, std::string& digits);

  // The type's entries in the file-type registry, by extension.
  unsigned GetClass() const;
  unsigned GetKindOf() const;
  unsigned GetProperties() const;
  unsigned GetLoader() const;
  unsigned GetSaver() const;

  bool Exists() const;
  bool IsDirectory() const;
  std::uint64_t GetLength() const; // 0 when missing

  // "\\" turned into the native separator.
  static std::string ToNativeSeparators(const std::string& name);

private:
  std::size_t DirectoryStart() const; // after the drive
  std::size_t FileNameStart() const;  // after the last separator

  std::string m_name;
};

// Appends the separator to a folder name that lacks one.
void fileSlashTerminate(std::string& path);

} // namespace meshcore
