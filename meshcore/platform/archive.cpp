#include "meshcore/platform/archive.h"

#include "meshcore/platform/exceptions.h"

#include <bit>
#include <cstring>
#include <memory>

namespace meshcore {

namespace {

constexpr std::uint16_t kNullTag = 0x0000;
constexpr std::uint16_t kBigIndexTag = 0x7FFF;
constexpr std::uint16_t kNewClassTag = 0xFFFF;
constexpr std::uint16_t kClassFlag = 0x8000;
constexpr std::uint32_t kBigClassFlag = 0x80000000u;
constexpr std::uint16_t kWideStringTag = 0xFFFE;

template <class T> void PutLE(CArchive& ar, T v) {
  using U = std::make_unsigned_t<T>;
  U u = static_cast<U>(v);
  std::uint8_t b[sizeof(T)];
  for (std::size_t i = 0; i < sizeof(T); ++i)
    b[i] = static_cast<std::uint8_t>(u >> (8 * i));
  ar.Write(b, sizeof(T));
}

template <class T> T GetLE(CArchive& ar) {
  using U = std::make_unsigned_t<T>;
  std::uint8_t b[sizeof(T)];
  ar.Read(b, sizeof(T));
  U u = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i)
    u = static_cast<U>(u | (static_cast<U>(b[i]) << (8 * i)));
  return static_cast<T>(u);
}

void AppendUtf8(std::string& out, std::uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

} // namespace

CArchive::CArchive(CByteStream* stream, Mode mode) : m_stream(stream), m_mode(mode) {
  if (!m_stream)
    ThrowArchiveException(CArchiveException::generic);
  if (m_mode == load)
    m_loadTable.push_back({nullptr, nullptr, 0});
}

CArchive::~CArchive() = default;

std::uint64_t CArchive::Remaining() const {
  return m_stream->Remaining();
}

void CArchive::Flush() {
  if (IsStoring())
    m_stream->Flush();
}

void CArchive::Write(const void* src, std::size_t n) {
  if (IsLoading())
    ThrowArchiveException(CArchiveException::readOnly, m_stream->GetFilePath());
  if (n)
    m_stream->Write(src, n);
}

void CArchive::Read(void* dst, std::size_t n) {
  if (IsStoring())
    ThrowArchiveException(CArchiveException::writeOnly, m_stream->GetFilePath());
  if (n == 0)
    return;
  if (n > m_stream->Remaining() || m_stream->Read(dst, n) != n)
    ThrowArchiveException(CArchiveException::endOfFile, m_stream->GetFilePath());
}

// --- scalars ---------------------------------------------------------------

CArchive& CArchive::operator<<(std::int8_t v) {
  PutLE(*this, v);
  return *this;
}
CArchive& CArchive::operator<<(std::uint8_t v) {
  PutLE(*this, v);
  return *this;
}
CArchive& CArchive::operator<<(std::int16_t v) {
  PutLE(*this, v);
  return *this;
}
CArchive& CArchive::operator<<(std::uint16_t v) {
  PutLE(*this, v);
  return *this;
}
CArchive& CArchive::operator<<(std::int32_t v) {
  PutLE(*this, v);
  return *this;
}
CArchive& CArchive::operator<<(std::uint32_t v) {
  PutLE(*this, v);
  return *this;
}
CArchive& CArchive::operator<<(std::int64_t v) {
  PutLE(*this, v);
  return *this;
}
CArchive& CArchive::operator<<(std::uint64_t v) {
  PutLE(*this, v);
  return *this;
}
CArchive& CArchive::operator<<(float v) {
  PutLE(*this, std::bit_cast<std::uint32_t>(v));
  return *this;
}
CArchive& CArchive::operator<<(double v) {
  PutLE(*this, std::bit_cast<std::uint64_t>(v));
  return *this;
}

CArchive& CArchive::operator>>(std::int8_t& v) {
  v = GetLE<std::int8_t>(*this);
  return *this;
}
CArchive& CArchive::operator>>(std::uint8_t& v) {
  v = GetLE<std::uint8_t>(*this);
  return *this;
}
CArchive& CArchive::operator>>(std::int16_t& v) {
  v = GetLE<std::int16_t>(*this);
  return *this;
}
CArchive& CArchive::operator>>(std::uint16_t& v) {
  v = GetLE<std::uint16_t>(*this);
  return *this;
}
CArchive& CArchive::operator>>(std::int32_t& v) {
  v = GetLE<std::int32_t>(*this);
  return *this;
}
CArchive& CArchive::operator>>(std::uint32_t& v) {
  v = GetLE<std::uint32_t>(*this);
  return *this;
}
CArchive& CArchive::operator>>(std::int64_t& v) {
  v = GetLE<std::int64_t>(*this);
  return *this;
}
CArchive& CArchive::operator>>(std::uint64_t& v) {
  v = GetLE<std::uint64_t>(*this);
  return *this;
}
CArchive& CArchive::operator>>(float& v) {
  v = std::bit_cast<float>(GetLE<std::uint32_t>(*this));
  return *this;
}
CArchive& CArchive::operator>>(double& v) {
  v = std::bit_cast<double>(GetLE<std::uint64_t>(*this));
  return *this;
}

// --- counts ----------------------------------------------------------------

void CArchive::WriteCount(std::uint64_t n) {
  if (n < 0xFFFF) {
    PutLE(*this, static_cast<std::uint16_t>(n));
    return;
  }
  PutLE(*this, std::uint16_t{0xFFFF});
  if (n < 0xFFFFFFFFu) {
    PutLE(*this, static_cast<std::uint32_t>(n));
    return;
  }
  PutLE(*this, std::uint32_t{0xFFFFFFFFu});
  PutLE(*this, n);
}

std::uint64_t CArchive::ReadCount() {
  return ReadCount(1);
}

std::uint64_t CArchive::ReadCount(std::uint64_t minBytesPerElement) {
  std::uint64_t n = GetLE<std::uint16_t>(*this);
  if (n == 0xFFFF) {
    n = GetLE<std::uint32_t>(*this);
    if (n == 0xFFFFFFFFu)
      n = GetLE<std::uint64_t>(*this);
  }
  CheckAvailable(n, minBytesPerElement);
  return n;
}

void CArchive::CheckAvailable(std::uint64_t n, std::uint64_t bytesPerElement) const {
  if (bytesPerElement == 0 || n == 0)
    return;
  if (n > m_stream->Remaining() / bytesPerElement)
    ThrowArchiveException(CArchiveException::endOfFile, m_stream->GetFilePath());
}

// --- strings ---------------------------------------------------------------

void CArchive::WriteStringLength(std::uint64_t n) {
  if (n < 0xFF) {
    PutLE(*this, static_cast<std::uint8_t>(n));
    return;
  }
  PutLE(*this, std::uint8_t{0xFF});
  if (n < 0xFFFE) {
    PutLE(*this, static_cast<std::uint16_t>(n));
    return;
  }
  PutLE(*this, std::uint16_t{0xFFFF});
  if (n < 0xFFFFFFFFu) {
    PutLE(*this, static_cast<std::uint32_t>(n));
    return;
  }
  PutLE(*this, std::uint32_t{0xFFFFFFFFu});
  PutLE(*this, n);
}

std::uint64_t CArchive::ReadStringLength(bool& wide) {
  wide = false;
  std::uint8_t b = GetLE<std::uint8_t>(*this);
  if (b < 0xFF)
    return b;
  std::uint16_t w = GetLE<std::uint16_t>(*this);
  if (w == kWideStringTag) {
    // The 16-bit form: the length encoding starts over, counted in UTF-16 units.
    wide = true;
    b = GetLE<std::uint8_t>(*this);
    if (b < 0xFF)
      return b;
    w = GetLE<std::uint16_t>(*this);
  }
  if (w < 0xFFFE)
    return w;
  const std::uint32_t d = GetLE<std::uint32_t>(*this);
  if (d < 0xFFFFFFFFu)
    return d;
  return GetLE<std::uint64_t>(*this);
}

CArchive& CArchive::operator<<(const std::string& s) {
  WriteStringLength(s.size());
  Write(s.data(), s.size());
  return *this;
}

void CArchive::WriteString16(const std::u16string& s) {
  PutLE(*this, std::uint8_t{0xFF});
  PutLE(*this, kWideStringTag);
  WriteStringLength(s.size());
  for (char16_t c : s)
    PutLE(*this, static_cast<std::uint16_t>(c));
}

CArchive& CArchive::operator>>(std::string& s) {
  bool wide = false;
  const std::uint64_t n = ReadStringLength(wide);
  CheckAvailable(n, wide ? 2 : 1);
  if (!wide) {
    s.resize(static_cast<std::size_t>(n));
    Read(s.data(), s.size());
    return *this;
  }
  std::vector<std::uint16_t> units(static_cast<std::size_t>(n));
  for (auto& u : units)
    u = GetLE<std::uint16_t>(*this);
  std::string out;
  out.reserve(units.size());
  for (std::size_t i = 0; i < units.size(); ++i) {
    std::uint32_t cp = units[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 &&
        units[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (units[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD; // an unpaired surrogate
    }
    AppendUtf8(out, cp);
  }
  s = std::move(out);
  return *this;
}

// --- classes and objects ---------------------------------------------------

void CArchive::WriteIndex(std::uint32_t index, bool isClass) {
  if (index < kBigIndexTag) {
    PutLE(*this, static_cast<std::uint16_t>(isClass ? (kClassFlag | index) : index));
  } else {
    PutLE(*this, kBigIndexTag);
    PutLE(*this, isClass ? (kBigClassFlag | index) : index);
  }
}

void CArchive::WriteClass(const CRuntimeClass* cls) {
  if (IsLoading())
    ThrowArchiveException(CArchiveException::readOnly, m_stream->GetFilePath());
  if (!cls || !cls->m_lpszClassName)
    ThrowArchiveException(CArchiveException::badClass, m_stream->GetFilePath());
  auto it = m_storeMap.find(cls);
  if (it != m_storeMap.end()) {
    WriteIndex(it->second, true);
    return;
  }
  const std::size_t len = std::strlen(cls->m_lpszClassName);
  if (len > 0xFFFF || m_nextIndex >= kBigClassFlag)
    ThrowArchiveException(CArchiveException::badClass, m_stream->GetFilePath());
  PutLE(*this, kNewClassTag);
  PutLE(*this, cls->m_wSchema);
  PutLE(*this, static_cast<std::uint16_t>(len));
  Write(cls->m_lpszClassName, len);
  m_storeMap.emplace(cls, m_nextIndex++);
}

void CArchive::WriteObject(const CObject* obj) {
  if (IsLoading())
    ThrowArchiveException(CArchiveException::readOnly, m_stream->GetFilePath());
  if (!obj) {
    PutLE(*this, kNullTag);
    return;
  }
  auto it = m_storeMap.find(obj);
  if (it != m_storeMap.end()) {
    WriteIndex(it->second, false);
    return;
  }
  WriteClass(obj->GetRuntimeClass());
  if (m_nextIndex >= kBigClassFlag)
    ThrowArchiveException(CArchiveException::badIndex, m_stream->GetFilePath());
  // Registered before Serialize so that objects referring back to it find it.
  m_storeMap.emplace(obj, m_nextIndex++);
  const_cast<CObject*>(obj)->Serialize(*this);
}

const CRuntimeClass* CArchive::ReadReference(std::uint32_t& objectIndex, std::uint32_t& schema) {
  if (IsStoring())
    ThrowArchiveException(CArchiveException::writeOnly, m_stream->GetFilePath());
  objectIndex = 0;
  const std::string& file = m_stream->GetFilePath();
  const std::uint16_t tag = GetLE<std::uint16_t>(*this);
  std::uint32_t classIndex = 0;
  if (tag == kNewClassTag) {
    const std::uint16_t fileSchema = GetLE<std::uint16_t>(*this);
    const std::uint16_t len = GetLE<std::uint16_t>(*this);
    CheckAvailable(len, 1);
    std::string name(len, '\0');
    Read(name.data(), len);
    const CRuntimeClass* cls = CRuntimeClass::FromName(name.data(), name.size());
    if (!cls)
      ThrowArchiveException(CArchiveException::badClass, file);
    m_loadTable.push_back({cls, nullptr, fileSchema});
    schema = fileSchema;
    return cls;
  }
  if (tag == kBigIndexTag) {
    const std::uint32_t big = GetLE<std::uint32_t>(*this);
    if ((big & kBigClassFlag) == 0) {
      if (big == 0) // a null is always written short
        ThrowArchiveException(CArchiveException::badIndex, file);
      objectIndex = big;
      return nullptr;
    }
    classIndex = big & ~kBigClassFlag;
  } else if (tag & kClassFlag) {
    classIndex = tag & ~kClassFlag;
  } else {
    objectIndex = tag;
    return nullptr;
  }
  if (classIndex == 0 || classIndex >= m_loadTable.size() || !m_loadTable[classIndex].cls)
    ThrowArchiveException(CArchiveException::badIndex, file);
  schema = m_loadTable[classIndex].schema;
  return m_loadTable[classIndex].cls;
}

const CRuntimeClass* CArchive::ReadClass(const CRuntimeClass* requiredClass,
                                         std::uint32_t* schema) {
  std::uint32_t objectIndex = 0, fileSchema = 0;
  const CRuntimeClass* cls = ReadReference(objectIndex, fileSchema);
  if (!cls)
    ThrowArchiveException(CArchiveException::badIndex, m_stream->GetFilePath());
  if (requiredClass && !cls->IsDerivedFrom(requiredClass))
    ThrowArchiveException(CArchiveException::badClass, m_stream->GetFilePath());
  m_lastSchema = fileSchema;
  if (schema)
    *schema = fileSchema;
  return cls;
}

CObject* CArchive::ReadObject(const CRuntimeClass* requiredClass) {
  std::uint32_t objectIndex = 0, schema = 0;
  const CRuntimeClass* cls = ReadReference(objectIndex, schema);
  const std::string& file = m_stream->GetFilePath();
  if (!cls) {
    if (objectIndex == 0)
      return nullptr;
    if (objectIndex >= m_loadTable.size() || !m_loadTable[objectIndex].obj)
      ThrowArchiveException(CArchiveException::badIndex, file);
    CObject* obj = m_loadTable[objectIndex].obj;
    if (requiredClass && !obj->IsKindOf(requiredClass))
      ThrowArchiveException(CArchiveException::badClass, file);
    return obj;
  }
  if (requiredClass && !cls->IsDerivedFrom(requiredClass))
    ThrowArchiveException(CArchiveException::badClass, file);
  std::unique_ptr<CObject> obj(cls->CreateObject());
  if (!obj)
    ThrowArchiveException(CArchiveException::badClass, file);
  const std::size_t first = m_loadTable.size();
  m_loadTable.push_back({nullptr, obj.get(), schema});
  m_lastSchema = schema;
  try {
    obj->Serialize(*this);
  } catch (...) {
    // This object and everything read inside it are being destroyed: make the
    // entries unusable so that a later reference cannot reach freed memory.
    for (std::size_t i = first; i < m_loadTable.size(); ++i)
      m_loadTable[i].obj = nullptr;
    m_loadTable[first].cls = nullptr;
    throw;
  }
  return obj.release();
}

} // namespace meshcore
