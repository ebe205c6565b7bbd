#include "meshcore/io/file_registry.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace meshcore {

namespace {

struct BuiltinType {
  const char* description;
  const char* extensions;
  char classCode[5];
  std::uint32_t contents;
};

// Registered in this order. "WVFT" appears twice on purpose: ".c4d" files are
// read by the Wavefront codec, and the second row's record replaces the first,
// so Cinema 4D gets no dialog entry of its own.
constexpr BuiltinType kBuiltinTypes[] = {
    {"RAW image files (Canon, Kodak, Minolta, Leica...)",
     ".raw|.crw|.cr2|.bay|.nef|.mrw|.orf|.raf|.dcr|.kdc|.kqp|.srf|.pef|.x3f", "RAWS", 0x1001},
    {"Z-Buffer files", ".qel", "ZFIL", 0x100B},
    {"Avi files", ".avi", "AVI ", 0x10113},
    {"Zpic softimage files", ".zpic", "ZPIC", 0x1041},
    {"Pic softimage files", ".pic", "PIC ", 0x1001},
    {"Iff files", ".iff", "IFF ", 0x1011},
    {"Photoshop files", ".psd|.pdd", "PHOT", 0x1011},
    {"Cursor files", ".cur|.ani", "CURS", 0x1011},
    {"Lightwave Object files", ".lwo|.lwb|.lw|.lwm", "LIGT", 0x4013},
    {"Lightwave Scene files", ".lws", "LIGS", 0x4011},
    {"Amapi files", ".a3d", "AMAP", 0x4011},
    {"Maya files", ".ma", "MAYA", 0x4012},
    {"3D Studio files", ".3ds", "3DST", 0x4013},
    {"Cinema 4D files", ".c4d", "WVFT", 0x4013},
    {"Wavefront files", ".obj", "WVFT", 0x4013},
    {"DXF files", ".dxf", "DXF ", 0x4013},
    {"VRML files", ".wrl", "VRML", 0x4013},
    {"Truespace files", ".cob|.scn", "TRUE", 0x4013},
    {"Windows audio files", ".wav", "AIWV", 0x8011},
    {"Windows Media audio files", ".wma", "AIWM", 0x8011},
    {"MPEG Audio files", ".mp3|.mp2|.mpa", "AIMG", 0x8011},
    {"Macintosh audio files", ".aif|.aifc|.aiff", "AIMC", 0x8011},
    {"Unix audio files", ".au", "AIUX", 0x8011},
    {"Midi files", ".mid|.rmi|.midi", "MIDI", 0x8011},
    {"Flash files", ".swf", "FLAS", 0x23011},
    {"Html files", ".htm|.html|.htx|.asp|.alx|.stm|.shtml|.aspx", "IHTM", 0x23011},
};

// Ordered containers so that every listing is the same from run to run.
struct Registry {
  std::map<std::uint32_t, CFileExt> classes;
  std::map<std::string, std::uint32_t> extensions;
  std::vector<std::uint32_t> order; // class codes in first-registration order
};

Registry& TheRegistry() {
  static Registry registry;
  return registry;
}

std::string Lower(std::string s) {
  for (char& c : s)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string Upper(std::string s) {
  for (char& c : s)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

std::string Join(const std::vector<std::string>& pieces, const char* separator) {
  std::string out;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    if (i)
      out += separator;
    out += pieces[i];
  }
  return out;
}

void Register(Registry& r, CFileExt& ext) {
  ext.m_extensions = Lower(ext.m_extensions);
  std::vector<std::string> pieces = fileSplitExtensionList(ext.m_extensions);

  // These two are the usual names of their types, whatever order a host lists them in.
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    if (pieces[i] == ".jpg" || pieces[i] == ".mpeg") {
      std::rotate(pieces.begin(), pieces.begin() + i, pieces.begin() + i + 1);
      ext.m_extensions = Join(pieces, "|");
      break;
    }
  }

  std::string main = pieces.empty() ? std::string() : pieces.front();
  std::erase(main, '.');
  ext.m_description = Upper(main) + " - " + ext.m_description;

  // A type that shares an extension with a registered one joins its class.
  bool merged = false;
  for (const std::string& piece : pieces) {
    const auto it = r.extensions.find(piece);
    if (it != r.extensions.end()) {
      ext.m_classCode = it->second;
      merged = true;
    }
  }
  for (const std::string& piece : pieces)
    r.extensions[piece] = ext.m_classCode;

  if (merged) {
    const auto stored = r.classes.find(ext.m_classCode);
    if (stored != r.classes.end()) {
      const CFileExt& old = stored->second;
      if (ext.m_loader == FILE_CLASS_UNKNOWN && old.m_loader != FILE_CLASS_UNKNOWN) {
        ext.m_loader = old.m_loader;
        ext.m_contents |= old.m_contents;
      }
      if (ext.m_saver == FILE_CLASS_UNKNOWN && old.m_saver != FILE_CLASS_UNKNOWN) {
        ext.m_saver = old.m_saver;
        ext.m_contents |= old.m_contents;
      }
    }
  }

  if (r.classes.find(ext.m_classCode) == r.classes.end())
    r.order.push_back(ext.m_classCode);
  r.classes[ext.m_classCode] = ext;
}

void RegisterBuiltins(Registry& r) {
  for (const BuiltinType& row : kBuiltinTypes) {
    CFileExt ext(row.description, row.extensions, fileMakeClassCode(row.classCode), row.contents);
    if (row.contents & (FILE_CAN_READ | FILE_CAN_READ_ALT))
      ext.m_loader = FILE_CLASS_LIBRARY;
    if (row.contents & (FILE_CAN_WRITE | FILE_CAN_WRITE_ALT))
      ext.m_saver = FILE_CLASS_LIBRARY;
    Register(r, ext);
  }
}

const CFileExt* FindClass(unsigned classCode) {
  const Registry& r = TheRegistry();
  const auto it = r.classes.find(classCode);
  return it == r.classes.end() ? nullptr : &it->second;
}

const CFileExt* FindExtension(const std::string& extension) {
  const Registry& r = TheRegistry();
  const auto it = r.extensions.find(Lower(extension));
  return it == r.extensions.end() ? nullptr : FindClass(it->second);
}

// Lookups answer from a blank record when the type is unknown ("UNKN" loader).
const CFileExt& OrBlank(const CFileExt* ext) {
  static const CFileExt blank;
  return ext ? *ext : blank;
}

} // namespace

std::string fileClassCodeToString(std::uint32_t classCode) {
  std::string s(4, ' ');
  for (int i = 0; i < 4; ++i)
    s[i] = static_cast<char>((classCode >> (24 - 8 * i)) & 0xFF);
  return s;
}

void fileRegisterFile(CFileExt& ext) {
  Registry& r = TheRegistry();
  if (r.classes.empty())
    RegisterBuiltins(r);
  Register(r, ext);
}

void fileRegisterBuiltinTypes() {
  Registry& r = TheRegistry();
  if (r.classes.empty())
    RegisterBuiltins(r);
}

void fileResetRegistry() {
  TheRegistry() = Registry();
}

CFileExt* fileGetRegisteredFiles(unsigned& count) {
  const Registry& r = TheRegistry();
  count = static_cast<unsigned>(r.classes.size());
  if (count == 0)
    return nullptr;
  auto* files = new CFileExt[count];
  std::size_t i = 0;
  for (const auto& [code, ext] : r.classes)
    files[i++] = ext;
  // Ties (equal descriptions but for case) keep class-code order.
  std::stable_sort(files, files + count, [](const CFileExt& a, const CFileExt& b) {
    return Lower(a.m_description) < Lower(b.m_description);
  });
  return files;
}

void fileFreeRegisteredFiles(CFileExt* files) {
  delete[] files;
}

int fileGetExtensionInfo(unsigned classCode, CFileExt& ext) {
  const CFileExt* found = FindClass(classCode);
  if (!found)
    return 0;
  ext = *found;
  return 1;
}

int fileGetFileExt(const std::string& extension, CFileExt& ext) {
  const CFileExt* found = FindExtension(extension);
  if (!found)
    return 0;
  ext = *found;
  return 1;
}

unsigned fileGetProperties(unsigned classCode) {
  return OrBlank(FindClass(classCode)).m_contents;
}
unsigned fileGetProperties(const std::string& extension) {
  return OrBlank(FindExtension(extension)).m_contents;
}
unsigned fileGetKindOf(unsigned classCode) {
  return OrBlank(FindClass(classCode)).GetKindOf();
}
unsigned fileGetKindOf(const std::string& extension) {
  return OrBlank(FindExtension(extension)).GetKindOf();
}
unsigned fileGetClass(const std::string& extension) {
  return OrBlank(FindExtension(extension)).m_classCode;
}
unsigned fileGetLoader(const std::string& extension) {
  return OrBlank(FindExtension(extension)).m_loader;
}
unsigned fileGetSaver(const std::string& extension) {
  return OrBlank(FindExtension(extension)).m_saver;
}

namespace {
std::string MainOf(const CFileExt& ext) {
  const std::string& list = ext.m_extensions;
  return list.substr(0, list.find('|'));
}
} // namespace

std::string fileGetMainExtension(unsigned classCode) {
  return MainOf(OrBlank(FindClass(classCode)));
}
std::string fileGetMainExtension(const std::string& extension) {
  return MainOf(OrBlank(FindExtension(extension)));
}

int fileGetExtensionArray(unsigned classCode, std::vector<std::string>& array) {
  if (const CFileExt* ext = FindClass(classCode))
    for (std::string& piece : fileSplitExtensionList(ext->m_extensions))
      array.push_back(std::move(piece));
  return static_cast<int>(array.size());
}

int fileGetExtensionArrayByProperty(unsigned property, std::vector<std::string>& array,
                                    int mainOnly) {
  const Registry& r = TheRegistry();
  for (std::uint32_t code : r.order) {
    const CFileExt& ext = r.classes.at(code);
    if ((ext.m_contents & property) != property)
      continue;
    if (mainOnly) {
      array.push_back(MainOf(ext));
    } else {
      for (std::string& piece : fileSplitExtensionList(ext.m_extensions))
        array.push_back(std::move(piece));
    }
  }
  return static_cast<int>(array.size());
}

std::vector<std::string> fileSplitExtensionList(const std::string& list, bool asPatterns) {
  std::vector<std::string> pieces;
  std::size_t start = 0;
  for (;;) {
    const std::size_t bar = list.find('|', start);
    std::string piece = list.substr(start, bar == std::string::npos ? bar : bar - start);
    pieces.push_back(asPatterns ? "*" + piece : piece);
    if (bar == std::string::npos)
      break;
    start = bar + 1;
  }
  return pieces;
}

namespace {
std::vector<std::string> CleanPieces(const std::string& list) {
  std::vector<std::string> out;
  for (std::string piece : fileSplitExtensionList(list)) {
    std::erase_if(piece, [](char c) { return std::isspace(static_cast<unsigned char>(c)); });
    while (!piece.empty() && piece.front() == '*')
      piece.erase(piece.begin());
    if (piece.empty() || piece == ".")
      continue;
    if (piece.front() != '.')
      piece.insert(piece.begin(), '.');
    piece = Lower(piece);
    if (std::find(out.begin(), out.end(), piece) == out.end())
      out.push_back(piece);
  }
  return out;
}
} // namespace

std::string fileCleanExtensionList(const std::string& list) {
  return Join(CleanPieces(list), "|");
}

int fileGetHashFromExtensionList(const std::string& list, CHashTable<std::string>& table) {
  const std::vector<std::string> pieces = CleanPieces(list);
  for (const std::string& piece : pieces)
    table.Insert(piece);
  return static_cast<int>(pieces.size());
}

// For each type: "description (.a, .b)|*.a;*.b|". With more than one type and
// allTypesEntry, then "All files type (<first 20 chars of the list>...)|<list>|"
// where the list is each type's main pattern followed by "; ". Ends with "|".
std::string fileGetFilterText(const CFileExt* types, unsigned count, bool allTypesEntry) {
  std::string text;
  std::string all;
  for (unsigned i = 0; i < count; ++i) {
    const CFileExt& type = types[i];
    const std::vector<std::string> exts = fileSplitExtensionList(type.m_extensions);
    const std::vector<std::string> patterns = fileSplitExtensionList(type.m_extensions, true);
    text += type.m_description + " (" + Join(exts, ", ") + ")|" + Join(patterns, ";") + "|";
    all += patterns.front() + "; ";
  }
  if (count > 1 && allTypesEntry)
    text += "All files type (" + all.substr(0, 20) + "...)|" + all + "|";
  text += "|";
  return text;
}

} // namespace meshcore
