#pragma once
// The process-wide registry of file types: a description for dialogs, the
// extensions, a four-character class code, capability and kind bits, and the
// class codes of the components that load and save the type. It is filled with
// the built-in types at start-up and grows as hosts register their own.

#include "meshcore/containers/hash_table.h"

#include <cstdint>
#include <string>
#include <vector>

namespace meshcore {

// "WVFT" -> 0x57564654: the four characters, the first most significant.
constexpr std::uint32_t fileMakeClassCode(const char (&code)[5]) {
  return (std::uint32_t(std::uint8_t(code[0])) << 24) |
         (std::uint32_t(std::uint8_t(code[1])) << 16) |
         (std::uint32_t(std::uint8_t(code[2])) << 8) | std::uint32_t(std::uint8_t(code[3]));
}
// The four characters of a class code.
std::string fileClassCodeToString(std::uint32_t classCode);

inline constexpr std::uint32_t FILE_CLASS_UNKNOWN = fileMakeClassCode("UNKN");
inline constexpr std::uint32_t FILE_CLASS_LIBRARY = fileMakeClassCode("QELP");
inline constexpr std::uint32_t FILE_CLASS_ALL = fileMakeClassCode("ALLF");

// Bits of CFileExt::contents.
enum FILE_CONTENTS : std::uint32_t {
  FILE_CAN_READ = 0x1,
  FILE_CAN_WRITE = 0x2,
  FILE_CAN_READ_ALT = 0x4,
  FILE_CAN_WRITE_ALT = 0x8,
  FILE_TESTED = 0x10,
  FILE_READ_OPTIONS = 0x20,
  FILE_READ_DIALOG = 0x40,
  FILE_WRITE_OPTIONS = 0x80,
  FILE_WRITE_DIALOG = 0x100,
  FILE_KIND_MASK = 0xFF000,
  FILE_KIND_IMAGE = 0x1000,
  FILE_KIND_SCENE = 0x4000,
  FILE_KIND_AUDIO = 0x8000,
  FILE_KIND_VIDEO = 0x10000,
  FILE_KIND_WEB = 0x23000
};

class CFileExt {
public:
  CFileExt() = default;
  CFileExt(const std::string& description, const std::string& extensions, std::uint32_t classCode,
           std::uint32_t contents, std::uint32_t loader = FILE_CLASS_UNKNOWN,
           std::uint32_t saver = FILE_CLASS_UNKNOWN)
      : m_description(description), m_extensions(extensions), m_classCode(classCode),
        m_contents(contents), m_loader(loader), m_saver(saver) {}

  void Init() { *this = CFileExt(); }

  const std::string& GetDescription() const { return m_description; }
  // The whole "|"-separated list; the first is the main extension.
  const std::string& GetExtension() const { return m_extensions; }
  std::uint32_t GetClass() const { return m_classCode; }
  std::uint32_t GetContents() const { return m_contents; }
  std::uint32_t GetKindOf() const { return m_contents & FILE_KIND_MASK; }
  std::uint32_t GetLoader() const { return m_loader; }
  std::uint32_t GetSaver() const { return m_saver; }

  void SetDescription(const std::string& d) { m_description = d; }
  void SetExtension(const std::string& e) { m_extensions = e; }
  void SetClass(std::uint32_t c) { m_classCode = c; }
  void SetContents(std::uint32_t c) { m_contents = c; }
  void SetLoader(std::uint32_t c) { m_loader = c; }
  void SetSaver(std::uint32_t c) { m_saver = c; }

  std::string m_description;
  std::string m_extensions;
  std::uint32_t m_classCode = 0;
  std::uint32_t m_contents = 0;
  std::uint32_t m_loader = FILE_CLASS_UNKNOWN;
  std::uint32_t m_saver = FILE_CLASS_UNKNOWN;
};

// Adds or merges a type; ext is rewritten to the registered form. The built-in
// types are registered first when the registry is empty.
void fileRegisterFile(CFileExt& ext);
// Registers the built-in types if the registry is still empty (library start-up).
void fileRegisterBuiltinTypes();
// Empties the registry. For tests, which need a known starting state.
void fileResetRegistry();

// A new array of copies of every type, sorted by description without regard to
// case; null and 0 when the registry is empty. Free with fileFreeRegisteredFiles.
CFileExt* fileGetRegisteredFiles(unsigned& count);
void fileFreeRegisteredFiles(CFileExt* files);

int fileGetExtensionInfo(unsigned classCode, CFileExt& ext);
int fileGetFileExt(const std::string& extension, CFileExt& ext);
unsigned fileGetProperties(unsigned classCode);
unsigned fileGetProperties(const std::string& extension);
unsigned fileGetKindOf(unsigned classCode);
unsigned fileGetKindOf(const std::string& extension);
// 0 when the extension is unknown.
unsigned fileGetClass(const std::string& extension);
// "UNKN" when the extension is unknown or the type has none.
unsigned fileGetLoader(const std::string& extension);
unsigned fileGetSaver(const std::string& extension);
std::string fileGetMainExtension(unsigned classCode);
std::string fileGetMainExtension(const std::string& extension);
// Append to array; return its size.
int fileGetExtensionArray(unsigned classCode, std::vector<std::string>& array);
int fileGetExtensionArrayByProperty(unsigned property, std::vector<std::string>& array,
                                    int mainOnly);

// Cuts a "|"-separated list at every "|", keeping empty pieces; with
// asPatterns each piece gets a leading "*" (".obj" -> "*.obj").
std::vector<std::string> fileSplitExtensionList(const std::string& list, bool asPatterns = false);
// Normalises a list typed by a user or a host: blanks and leading "*" dropped,
// a missing dot added, lower case, empty pieces and repeats removed.
// " *.OBJ|lwo||.obj " gives ".obj|.lwo".
std::string fileCleanExtensionList(const std::string& list);
// The cleaned extensions of list as a set; returns their number.
int fileGetHashFromExtensionList(const std::string& list, CHashTable<std::string>& table);

// The open/save dialog filter text for the given types (see file_registry.cpp).
std::string fileGetFilterText(const CFileExt* types, unsigned count, bool allTypesEntry);

} // namespace meshcore
