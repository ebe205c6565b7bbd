#include "meshcore/containers/custom_data.h"

#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/exceptions.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

namespace meshcore {

namespace {

// Entries are packed without alignment: every field goes through memcpy.
std::uint32_t Load32(const std::uint8_t* p) {
  std::uint32_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
std::uint64_t Load64(const std::uint8_t* p) {
  std::uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
void Store32(std::uint8_t* p, std::uint32_t v) {
  std::memcpy(p, &v, sizeof v);
}
void Store64(std::uint8_t* p, std::uint64_t v) {
  std::memcpy(p, &v, sizeof v);
}

constexpr std::size_t kIdOffset = 0;
constexpr std::size_t kSizeOffset = 4;
constexpr std::size_t kLinkOffset = 8;

std::size_t EntryLength(const std::uint8_t* entry) {
  return static_cast<std::size_t>(Load32(entry + kSizeOffset)) + CCustomData::kEntryOverhead;
}

// Concatenates strings, each with its terminating zero.
template <class It> std::vector<char> JoinStrings(It first, It last) {
  std::vector<char> bytes;
  for (; first != last; ++first) {
    bytes.insert(bytes.end(), first->begin(), first->end());
    bytes.push_back('\0');
  }
  return bytes;
}

} // namespace

bool CCustomData::IsValidBlock(const std::uint8_t* block, std::size_t size) {
  if (size == 0)
    return true;
  if (!block || size > UINT32_MAX)
    return false;
  std::size_t pos = 0;
  for (;;) {
    if (size - pos < kEntryOverhead)
      return false;
    const std::size_t dataSize = Load32(block + pos + kSizeOffset);
    if (dataSize > size - pos - kEntryOverhead)
      return false;
    const std::size_t end = pos + dataSize + kEntryOverhead;
    const bool last = Load64(block + pos + kLinkOffset) == 0;
    if (last)
      return end == size;
    if (end == size)
      return false; // the chain claims more entries than the block holds
    pos = end;
  }
}

CCustomData::CCustomData(const CCustomData& other) {
  AssignBlock(other.m_block, other.m_blockSize);
}

CCustomData::CCustomData(CCustomData&& other) noexcept
    : m_block(other.m_block), m_blockSize(other.m_blockSize) {
  other.m_block = nullptr;
  other.m_blockSize = 0;
}

CCustomData::~CCustomData() {
  std::free(m_block);
}

CCustomData& CCustomData::operator=(const CCustomData& other) {
  if (this != &other)
    AssignBlock(other.m_block, other.m_blockSize);
  return *this;
}

CCustomData& CCustomData::operator=(const CCustomData* other) {
  if (!other)
    RemoveAll();
  else if (other != this)
    AssignBlock(other->m_block, other->m_blockSize);
  return *this;
}

CCustomData& CCustomData::operator=(CCustomData&& other) noexcept {
  if (this != &other) {
    std::free(m_block);
    m_block = other.m_block;
    m_blockSize = other.m_blockSize;
    other.m_block = nullptr;
    other.m_blockSize = 0;
  }
  return *this;
}

void CCustomData::AssignBlock(const std::uint8_t* block, std::uint32_t size) {
  if (block == m_block)
    return;
  std::uint8_t* copy = nullptr;
  if (size) {
    copy = static_cast<std::uint8_t*>(std::malloc(size));
    if (!copy)
      throw CMemoryException();
    std::memcpy(copy, block, size);
  }
  std::free(m_block);
  m_block = copy;
  m_blockSize = size;
  UpdateDataPointers();
}

void CCustomData::UpdateDataPointers() {
  // Links are stored as 1 (another entry follows) or 0 (last entry): the walk
  // only needs to know where the chain ends, and the block then reads the same
  // in memory, in archives and in preferences files whatever its address.
  std::size_t pos = 0;
  while (pos < m_blockSize) {
    const std::size_t next = pos + EntryLength(m_block + pos);
    Store64(m_block + pos + kLinkOffset, next < m_blockSize ? 1 : 0);
    pos = next;
  }
}

std::ptrdiff_t CCustomData::FindEntry(unsigned id) const {
  std::size_t pos = 0;
  while (pos < m_blockSize) {
    if (Load32(m_block + pos + kIdOffset) == id)
      return static_cast<std::ptrdiff_t>(pos);
    pos += EntryLength(m_block + pos);
  }
  return -1;
}

int CCustomData::GetCount() const {
  int count = 0;
  for (std::size_t pos = 0; pos < m_blockSize; pos += EntryLength(m_block + pos))
    ++count;
  return count;
}

int CCustomData::ReplaceCustom(unsigned id, const void* data, unsigned size) {
  const std::ptrdiff_t pos = FindEntry(id);
  if (pos < 0 || Load32(m_block + pos + kSizeOffset) != size)
    return 0;
  if (size)
    std::memmove(m_block + pos + kHeaderSize, data, size);
  return 1;
}

void CCustomData::SetCustom(unsigned id, const void* data, unsigned size) {
  if (ReplaceCustom(id, data, size))
    return;
  // The value may live inside this block (copied from another entry), and the
  // removal and reallocation below would move it.
  std::vector<std::uint8_t> own;
  const auto* src = static_cast<const std::uint8_t*>(data);
  if (size && m_block && src >= m_block && src < m_block + m_blockSize) {
    own.assign(src, src + size);
    src = own.data();
  }
  RemoveCustom(id);
  if (size == 0)
    return;
  const std::uint64_t newSize = std::uint64_t(m_blockSize) + size + kEntryOverhead;
  if (newSize > UINT32_MAX)
    throw CMemoryException();
  auto* grown = static_cast<std::uint8_t*>(std::realloc(m_block, newSize));
  if (!grown)
    throw CMemoryException();
  m_block = grown;
  std::uint8_t* entry = m_block + m_blockSize;
  Store32(entry + kIdOffset, id);
  Store32(entry + kSizeOffset, size);
  Store64(entry + kLinkOffset, 0);
  std::memcpy(entry + kHeaderSize, src, size);
  std::memset(entry + kHeaderSize + size, 0, kEntryOverhead - kHeaderSize);
  m_blockSize = static_cast<std::uint32_t>(newSize);
  UpdateDataPointers();
}

int CCustomData::GetCustom(unsigned id, void* buffer, unsigned size) const {
  const std::ptrdiff_t pos = FindEntry(id);
  if (pos < 0 || Load32(m_block + pos + kSizeOffset) != size)
    return 0;
  if (size)
    std::memcpy(buffer, m_block + pos + kHeaderSize, size);
  return 1;
}

void* CCustomData::GetCustomPtr(unsigned id) {
  const std::ptrdiff_t pos = FindEntry(id);
  return pos < 0 ? nullptr : m_block + pos + kHeaderSize;
}

const void* CCustomData::GetCustomPtr(unsigned id) const {
  const std::ptrdiff_t pos = FindEntry(id);
  return pos < 0 ? nullptr : m_block + pos + kHeaderSize;
}

unsigned CCustomData::GetDataSize(unsigned id) const {
  const std::ptrdiff_t pos = FindEntry(id);
  return pos < 0 ? 0 : Load32(m_block + pos + kSizeOffset);
}

int CCustomData::HasData(unsigned id) const {
  return FindEntry(id) >= 0;
}

void CCustomData::RemoveCustom(unsigned id) {
  bool removed = false;
  for (std::ptrdiff_t pos = FindEntry(id); pos >= 0; pos = FindEntry(id)) {
    const std::size_t length = EntryLength(m_block + pos);
    const std::size_t tail = m_blockSize - (pos + length);
    std::memmove(m_block + pos, m_block + pos + length, tail);
    m_blockSize -= static_cast<std::uint32_t>(length);
    removed = true;
  }
  if (!removed)
    return;
  if (m_blockSize == 0) {
    RemoveAll();
    return;
  }
  if (auto* shrunk = static_cast<std::uint8_t*>(std::realloc(m_block, m_blockSize)))
    m_block = shrunk;
  UpdateDataPointers();
}

void CCustomData::RemoveAll() {
  std::free(m_block);
  m_block = nullptr;
  m_blockSize = 0;
}

int CCustomData::SetData(const void* block, unsigned size) {
  const auto* bytes = static_cast<const std::uint8_t*>(block);
  if (!IsValidBlock(bytes, size)) {
    RemoveAll();
    return 0;
  }
  AssignBlock(bytes, size);
  return 1;
}

const void* CCustomData::GetData(unsigned& size) const {
  size = m_blockSize;
  return m_block;
}

// --- typed values --------------------------------------------------------

void CCustomData::SetBool(unsigned id, bool value) {
  const std::int32_t v = value ? 1 : 0;
  SetCustom(id, &v, sizeof v);
}

void CCustomData::SetPtr(unsigned id, void* value) {
  const std::uint64_t v = reinterpret_cast<std::uintptr_t>(value);
  SetCustom(id, &v, sizeof v);
}

void CCustomData::SetString(unsigned id, const std::string& value) {
  SetCustom(id, value.c_str(), static_cast<unsigned>(value.size() + 1));
}

void CCustomData::SetStringArray(unsigned id, const std::vector<std::string>& values) {
  const std::vector<char> bytes = JoinStrings(values.begin(), values.end());
  SetCustom(id, bytes.data(), static_cast<unsigned>(bytes.size()));
}

void CCustomData::SetStringList(unsigned id, const std::list<std::string>& values) {
  const std::vector<char> bytes = JoinStrings(values.begin(), values.end());
  SetCustom(id, bytes.data(), static_cast<unsigned>(bytes.size()));
}

void CCustomData::SetCustomData(unsigned id, const CCustomData& value) {
  if (&value == this) {
    const CCustomData copy(value);
    SetCustom(id, copy.m_block, copy.m_blockSize);
  } else {
    SetCustom(id, value.m_block, value.m_blockSize);
  }
}

void CCustomData::SetCustomClass(unsigned id, const CCustomDataClass& value) {
  SetCustom(id, &value, sizeof value);
}

namespace {
template <class T> int GetFixed(const CCustomData& cd, unsigned id, T& value, T defaultValue) {
  if (cd.GetCustom(id, &value, sizeof(T)))
    return 1;
  value = defaultValue;
  return 0;
}
} // namespace

int CCustomData::GetInt(unsigned id, int& value, int defaultValue) const {
  return GetFixed(*this, id, value, defaultValue);
}
int CCustomData::GetUInt(unsigned id, unsigned& value, unsigned defaultValue) const {
  return GetFixed(*this, id, value, defaultValue);
}
int CCustomData::GetLong(unsigned id, std::int32_t& value, std::int32_t defaultValue) const {
  return GetFixed(*this, id, value, defaultValue);
}
int CCustomData::GetULong(unsigned id, std::uint32_t& value, std::uint32_t defaultValue) const {
  return GetFixed(*this, id, value, defaultValue);
}
int CCustomData::GetFloat(unsigned id, float& value, float defaultValue) const {
  return GetFixed(*this, id, value, defaultValue);
}
int CCustomData::GetDouble(unsigned id, double& value, double defaultValue) const {
  return GetFixed(*this, id, value, defaultValue);
}

int CCustomData::GetBool(unsigned id, bool& value, bool defaultValue) const {
  std::int32_t v = 0;
  if (GetCustom(id, &v, sizeof v)) {
    value = v != 0;
    return 1;
  }
  value = defaultValue;
  return 0;
}

int CCustomData::GetPtr(unsigned id, void*& value, void* defaultValue) const {
  std::uint64_t v = 0;
  if (GetCustom(id, &v, sizeof v)) {
    value = reinterpret_cast<void*>(static_cast<std::uintptr_t>(v));
    return 1;
  }
  value = defaultValue;
  return 0;
}

int CCustomData::GetString(unsigned id, std::string& value, const std::string& defaultValue) const {
  const std::ptrdiff_t pos = FindEntry(id);
  const unsigned size = pos < 0 ? 0 : Load32(m_block + pos + kSizeOffset);
  if (size == 0) {
    value = defaultValue;
    return 0;
  }
  // A value read from a file need not be terminated: stop at the entry's end.
  const char* text = reinterpret_cast<const char*>(m_block + pos + kHeaderSize);
  value.assign(text, strnlen(text, size));
  return 1;
}

template <class Container> int CCustomData::GetStrings(unsigned id, Container& values) const {
  values.clear();
  const std::ptrdiff_t pos = FindEntry(id);
  if (pos < 0)
    return 0;
  const unsigned size = Load32(m_block + pos + kSizeOffset);
  const char* text = reinterpret_cast<const char*>(m_block + pos + kHeaderSize);
  std::size_t at = 0;
  while (at < size) {
    const std::size_t len = strnlen(text + at, size - at);
    values.emplace_back(text + at, len);
    at += len + 1;
  }
  return 1;
}

int CCustomData::GetStringArray(unsigned id, std::vector<std::string>& values) const {
  return GetStrings(id, values);
}

int CCustomData::GetStringList(unsigned id, std::list<std::string>& values) const {
  return GetStrings(id, values);
}

int CCustomData::GetCustomData(unsigned id, CCustomData& out) const {
  // Copy first: out may be this record.
  const std::ptrdiff_t pos = FindEntry(id);
  if (pos < 0) {
    out.RemoveAll();
    return 0;
  }
  const unsigned size = Load32(m_block + pos + kSizeOffset);
  std::vector<std::uint8_t> nested(m_block + pos + kHeaderSize, m_block + pos + kHeaderSize + size);
  out.RemoveAll();
  // A nested block may come from a file or from SetCustom with foreign bytes.
  if (!IsValidBlock(nested.data(), nested.size()))
    return 0;
  out.AssignBlock(nested.data(), size);
  return 1;
}

int CCustomData::GetCustomClass(unsigned id, CCustomDataClass& value) const {
  if (!GetCustom(id, &value, sizeof value))
    return 0;
  value.name[sizeof value.name - 1] = '\0';
  return 1;
}

// --- merging and comparison ------------------------------------------------

void CCustomData::AddToCustomData(unsigned id, const CCustomData& other, int keepExisting) {
  CCustomData nested;
  GetCustomData(id, nested);
  nested.Copy(&other, keepExisting ? 3 : 2);
  SetCustomData(id, nested);
}

void CCustomData::Copy(const CCustomData* other, unsigned mode) {
  if (!other) {
    if ((mode & 3) == 0)
      RemoveAll();
    return;
  }
  if (other == this)
    return;
  if ((mode & 3) == 0) {
    *this = *other;
    return;
  }
  for (std::size_t pos = 0; pos < other->m_blockSize; pos += EntryLength(other->m_block + pos)) {
    const std::uint8_t* entry = other->m_block + pos;
    const unsigned id = Load32(entry + kIdOffset);
    if ((mode & 1) && HasData(id))
      continue;
    SetCustom(id, entry + kHeaderSize, Load32(entry + kSizeOffset));
  }
}

void CCustomData::CopyID(const CCustomData* other, unsigned id, ...) {
  std::va_list ids;
  va_start(ids, id);
  for (unsigned current = id; current != 0; current = va_arg(ids, unsigned)) {
    if (!other || other == this)
      continue;
    const std::ptrdiff_t pos = other->FindEntry(current);
    if (pos >= 0)
      SetCustom(current, other->m_block + pos + kHeaderSize,
                Load32(other->m_block + pos + kSizeOffset));
  }
  va_end(ids);
}

int CCustomData::IsEqual(const CCustomData& other) const {
  struct Value {
    unsigned size;
    const std::uint8_t* data;
  };
  // Keyed by id, as a later duplicate id replaces an earlier one.
  std::unordered_map<unsigned, Value> mine;
  for (std::size_t pos = 0; pos < m_blockSize; pos += EntryLength(m_block + pos))
    mine[Load32(m_block + pos + kIdOffset)] = {Load32(m_block + pos + kSizeOffset),
                                               m_block + pos + kHeaderSize};
  std::size_t count = 0;
  for (std::size_t pos = 0; pos < other.m_blockSize; pos += EntryLength(other.m_block + pos)) {
    const std::uint8_t* entry = other.m_block + pos;
    const auto it = mine.find(Load32(entry + kIdOffset));
    const unsigned size = Load32(entry + kSizeOffset);
    if (it == mine.end() || it->second.size != size ||
        std::memcmp(it->second.data, entry + kHeaderSize, size) != 0)
      return 0;
    ++count;
  }
  return count == mine.size();
}

// --- persistence -------------------------------------------------------------

namespace {

// Reads "CUST", the size and a validated block; the caller keeps the bytes.
std::vector<std::uint8_t> ReadBlock(CArchive& ar) {
  const std::string file = ar.GetFile()->GetFilePath();
  if (ar.Remaining() < 8)
    ThrowFileException(CFileException::endOfFile, file);
  std::uint32_t magic = 0, size = 0;
  ar >> magic;
  if (magic != CCustomData::kMagic)
    ThrowFileException(CFileException::generic, file);
  ar >> size;
  if (size > ar.Remaining())
    ThrowFileException(CFileException::endOfFile, file);
  std::vector<std::uint8_t> block(size);
  if (size)
    ar.Read(block.data(), size);
  if (!CCustomData::IsValidBlock(block.data(), block.size()))
    ThrowFileException(CFileException::invalidFile, file);
  return block;
}

struct PrefsRecord {
  std::uint32_t classCode;
  std::uint32_t direction;
  std::vector<std::uint8_t> block;
};

// Every well-formed record of a preferences file, in order. Reading stops at the
// first damaged record: what precedes it is still usable.
std::vector<PrefsRecord> ReadPrefsFile(const std::string& file, bool& exists) {
  std::vector<PrefsRecord> records;
  CStdioFile disk;
  exists = disk.Open(file, CStdioFile::modeRead);
  if (!exists)
    return records;
  try {
    CArchive ar(&disk, CArchive::load);
    std::uint32_t count = 0;
    ar >> count;
    for (std::uint32_t i = 0; i < count; ++i) {
      PrefsRecord record{};
      ar >> record.classCode >> record.direction;
      record.block = ReadBlock(ar);
      records.push_back(std::move(record));
    }
  } catch (const CException&) {
  }
  disk.Close();
  return records;
}

} // namespace

void CCustomData::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << kMagic << m_blockSize;
    if (m_blockSize)
      ar.Write(m_block, m_blockSize);
    return;
  }
  RemoveAll();
  const std::vector<std::uint8_t> block = ReadBlock(ar);
  AssignBlock(block.data(), static_cast<std::uint32_t>(block.size()));
}

int CCustomData::LoadFromPrefs(const std::string& file, unsigned classCode, unsigned direction) {
  bool exists = false;
  for (const PrefsRecord& record : ReadPrefsFile(file, exists)) {
    if (record.classCode == classCode && record.direction == direction) {
      AssignBlock(record.block.data(), static_cast<std::uint32_t>(record.block.size()));
      return 1;
    }
  }
  return 0;
}

int CCustomData::SaveToPrefs(const std::string& file, unsigned classCode,
                             unsigned direction) const {
  bool exists = false;
  std::vector<PrefsRecord> records = ReadPrefsFile(file, exists);
  std::erase_if(records, [&](const PrefsRecord& r) {
    return r.classCode == classCode && r.direction == direction;
  });

  // Written whole to "<file>.tmp" and only then moved over the file, so that a
  // failed save leaves the previous preferences in place.
  const std::string temp = file + ".tmp";
  try {
    CStdioFile out;
    int cause = 0;
    if (!out.Open(temp, CStdioFile::modeWrite, &cause))
      return 0;
    CArchive ar(&out, CArchive::store);
    ar << static_cast<std::uint32_t>(records.size() + 1);
    for (const PrefsRecord& r : records) {
      ar << r.classCode << r.direction << kMagic << static_cast<std::uint32_t>(r.block.size());
      if (!r.block.empty())
        ar.Write(r.block.data(), r.block.size());
    }
    ar << static_cast<std::uint32_t>(classCode) << static_cast<std::uint32_t>(direction);
    ar << kMagic << m_blockSize;
    if (m_blockSize)
      ar.Write(m_block, m_blockSize);
    ar.Flush();
    out.Close();
  } catch (const CException&) {
    std::remove(temp.c_str());
    return 0;
  }
  if (std::rename(temp.c_str(), file.c_str()) != 0) {
    std::remove(temp.c_str());
    return 0;
  }
  return 1;
}

} // namespace meshcore
