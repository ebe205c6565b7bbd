#pragma once
// The serialisation stream: little-endian scalars, the count encoding, 8- and
// 16-bit string forms and polymorphic object/class references.

#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/object.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace meshcore {

class CArchive {
public:
  enum Mode { load = 1, store = 0 };

  CArchive(CByteStream* stream, Mode mode);
  ~CArchive();
  CArchive(const CArchive&) = delete;
  CArchive& operator=(const CArchive&) = delete;

  bool IsLoading() const { return m_mode == load; }
  bool IsStoring() const { return m_mode == store; }
  CByteStream* GetFile() const { return m_stream; }
  // Bytes left in the underlying stream when loading.
  std::uint64_t Remaining() const;
  void Flush();
  void Close() { Flush(); }

  // Raw bytes; Read throws endOfFile when the stream holds fewer than n.
  void Write(const void* src, std::size_t n);
  void Read(void* dst, std::size_t n);

  CArchive& operator<<(std::int8_t v);
  CArchive& operator<<(std::uint8_t v);
  CArchive& operator<<(std::int16_t v);
  CArchive& operator<<(std::uint16_t v);
  CArchive& operator<<(std::int32_t v);
  CArchive& operator<<(std::uint32_t v);
  CArchive& operator<<(std::int64_t v);
  CArchive& operator<<(std::uint64_t v);
  CArchive& operator<<(float v);
  CArchive& operator<<(double v);
  CArchive& operator<<(const std::string& s); // 8-bit string form
  CArchive& operator<<(const char* s) { return *this << std::string(s); }

  CArchive& operator>>(std::int8_t& v);
  CArchive& operator>>(std::uint8_t& v);
  CArchive& operator>>(std::int16_t& v);
  CArchive& operator>>(std::uint16_t& v);
  CArchive& operator>>(std::int32_t& v);
  CArchive& operator>>(std::uint32_t& v);
  CArchive& operator>>(std::int64_t& v);
  CArchive& operator>>(std::uint64_t& v);
  CArchive& operator>>(float& v);
  CArchive& operator>>(double& v);
  CArchive& operator>>(std::string& s); // accepts the 8-bit and the 16-bit form

  void WriteCount(std::uint64_t n);
  std::uint64_t ReadCount();
  // ReadCount that also refuses (badIndex... endOfFile) a count whose elements,
  // at minBytesPerElement each, cannot fit in the bytes left in the stream.
  std::uint64_t ReadCount(std::uint64_t minBytesPerElement);
  // Throws CArchiveException(endOfFile) when n elements of the given size cannot
  // fit in the rest of the stream; call before allocating from a count read.
  void CheckAvailable(std::uint64_t n, std::uint64_t bytesPerElement) const;

  void WriteString16(const std::u16string& s); // the 16-bit form, for tests and peers

  // Polymorphic records. ReadObject checks that the object read derives from
  // requiredClass (when given) and throws badClass otherwise.
  void WriteObject(const CObject* obj);
  CObject* ReadObject(const CRuntimeClass* requiredClass);
  void WriteClass(const CRuntimeClass* cls);
  // Reads a class reference; when requestedSchema is given, stores the schema read.
  const CRuntimeClass* ReadClass(const CRuntimeClass* requiredClass = nullptr,
                                 std::uint32_t* schema = nullptr);
  // Schema of the object being read (as written in its class reference).
  std::uint32_t GetObjectSchema() const { return m_lastSchema; }

private:
  CByteStream* m_stream;
  Mode m_mode;
  std::uint32_t m_nextIndex = 1;
  std::uint32_t m_lastSchema = 0;
  // Storing: object and class addresses to their index. Loading: index to entry.
  std::unordered_map<const void*, std::uint32_t> m_storeMap;
  struct LoadEntry {
    const CRuntimeClass* cls; // set for class entries
    CObject* obj;             // set for object entries
    std::uint32_t schema;
  };
  std::vector<LoadEntry> m_loadTable; // index 0 unused; both pointers null = unusable

  // Decodes one reference: returns the class of a class reference (objectIndex 0)
  // or null with objectIndex set for an object reference (0 for the null object).
  const CRuntimeClass* ReadReference(std::uint32_t& objectIndex, std::uint32_t& schema);
  std::uint64_t ReadStringLength(bool& wide);
  void WriteStringLength(std::uint64_t n);
  void WriteIndex(std::uint32_t index, bool isClass);
};

} // namespace meshcore
