#include "meshcore/containers/element_array.h"

#include "meshcore/platform/archive.h"
#include "meshcore/platform/exceptions.h"
#include "meshcore/platform/memory.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace meshcore {

MESHCORE_IMPLEMENT_DYNAMIC(CElementArray, CObject)

namespace {

// Identity numbers are never reused; several threads may build lists at once.
std::atomic<std::uint32_t> s_nextArrayID{0};

// A grow-by read from a file beyond this is not a plausible setting but a way to
// make the next Add allocate gigabytes; such values fall back to automatic.
constexpr std::uint32_t kMaxArchivedGrowBy = 1u << 16;

} // namespace

CElementArray::CElementArray() : CElementArray(0) {}

CElementArray::CElementArray(std::uint32_t recordSize)
    : m_id(s_nextArrayID.fetch_add(1, std::memory_order_relaxed)), m_recordSize(recordSize),
      m_archiveRecordSize(recordSize) {}

CElementArray::~CElementArray() {
  std::free(m_data);
}

CElementArray& CElementArray::operator=(const CElementArray& other) {
  Copy(other);
  return *this;
}

void CElementArray::Reallocate(int capacity) {
  std::size_t bytes = static_cast<std::size_t>(capacity) * m_recordSize;
  // realloc moves the records as raw bytes, in place when it can.
  void* p = std::realloc(m_data, bytes ? bytes : 1);
  if (!p)
    throw CMemoryException();
  m_data = static_cast<unsigned char*>(p);
  m_capacity = capacity;
  AdviseLargeBlock(p, bytes);
}

std::intptr_t CElementArray::OffsetOf(const void* p) const {
  auto a = reinterpret_cast<std::uintptr_t>(p);
  auto b = reinterpret_cast<std::uintptr_t>(m_data);
  std::uintptr_t bytes = static_cast<std::uintptr_t>(m_capacity) * m_recordSize;
  return m_data && a >= b && a < b + bytes ? static_cast<std::intptr_t>(a - b) : -1;
}

void CElementArray::SetSize(int n, int growBy) {
  if (growBy != -1)
    m_growBy = growBy;
  if (n <= 0) {
    MyDestructElements(m_data, m_size);
    std::free(m_data);
    m_data = nullptr;
    m_size = m_capacity = 0;
    return;
  }
  if (!m_data) {
    // The first block holds exactly n records, no extra room.
    Reallocate(n);
    MyConstructElements(m_data, n);
    m_size = n;
    return;
  }
  if (n > m_capacity) {
    const int step = m_growBy != 0 ? m_growBy : std::clamp(m_size / 8, 4, 1024);
    const long long wanted = static_cast<long long>(m_capacity) + step;
    Reallocate(static_cast<int>(std::clamp<long long>(wanted, n, INT_MAX)));
  }
  if (n > m_size)
    MyConstructElements(Record(m_size), n - m_size);
  else if (n < m_size)
    MyDestructElements(Record(n), m_size - n);
  m_size = n;
}

void CElementArray::SetAt(int i, const void* element) {
  CopyElement(Record(i), const_cast<void*>(element));
}

void CElementArray::SetAtGrow(int i, const void* element) {
  if (i >= m_size) {
    const std::intptr_t offset = OffsetOf(element);
    SetSize(i + 1, -1);
    if (offset >= 0)
      element = m_data + offset;
  }
  SetAt(i, element);
}

int CElementArray::Add(const void* element) {
  const int index = m_size;
  SetAtGrow(index, element);
  return index;
}

void CElementArray::InsertAt(int i, const void* element, int n) {
  if (n <= 0)
    return;
  std::intptr_t offset = OffsetOf(element);
  if (i >= m_size) {
    SetSize(i + n, -1);
  } else {
    const int oldSize = m_size;
    SetSize(oldSize + n, -1);
    // The tail records just constructed are about to be overwritten by the move.
    MyDestructElements(Record(oldSize), n);
    const std::size_t tail = static_cast<std::size_t>(oldSize - i) * m_recordSize;
    std::memmove(Record(i + n), Record(i), tail);
    try {
      MyConstructElements(Record(i), n);
    } catch (...) {
      std::memmove(Record(i), Record(i + n), tail);
      m_size = oldSize;
      throw;
    }
    if (offset >= static_cast<std::intptr_t>(static_cast<std::size_t>(i) * m_recordSize))
      offset += static_cast<std::intptr_t>(static_cast<std::size_t>(n) * m_recordSize);
  }
  if (offset >= 0)
    element = m_data + offset;
  for (int k = 0; k < n; ++k)
    SetAt(i + k, element);
}

void CElementArray::InsertAt(int i, CElementArray* other) {
  if (!other || other->m_size <= 0)
    return;
  const int n = other->m_size;
  InsertAt(i, (*other)[0], n);
  for (int k = 0; k < n; ++k)
    SetAt(i + k, (*other)[k]);
}

void CElementArray::RemoveAt(int i, int n) {
  if (n <= 0)
    return;
  MyDestructElements(Record(i), n);
  const int moved = m_size - (i + n);
  if (moved > 0)
    std::memmove(Record(i), Record(i + n), static_cast<std::size_t>(moved) * m_recordSize);
  m_size -= n;
}

int CElementArray::Append(const CElementArray& other) {
  const int oldSize = m_size;
  const int n = other.m_size;
  if (n > 0) {
    SetSize(oldSize + n, -1);
    MyCopyElements(Record(oldSize), other.m_data, n);
  }
  return oldSize;
}

void CElementArray::Copy(const CElementArray& other) {
  if (this == &other)
    return;
  // A copy answers GetID() like its source.
  m_id = other.m_id;
  SetSize(other.m_size, -1);
  MyCopyElements(m_data, other.m_data, m_size);
}

void CElementArray::FreeExtra() {
  if (m_capacity <= m_size)
    return;
  if (m_size == 0) {
    std::free(m_data);
    m_data = nullptr;
    m_capacity = 0;
  } else {
    Reallocate(m_size);
  }
}

void* CElementArray::AllocateUnconstructed(int n) {
  if (n <= 0 || m_size != 0)
    return nullptr;
  if (m_capacity != n)
    Reallocate(n);
  return m_data;
}

void CElementArray::AdoptConstructed(int n) {
  m_size = std::clamp(n, 0, m_capacity);
}

void CElementArray::ConstructElements(void* p, int n) {
  auto* rec = static_cast<unsigned char*>(p);
  int done = 0;
  try {
    for (; done < n; ++done)
      ConstructElement(rec + static_cast<std::size_t>(done) * m_recordSize);
  } catch (...) {
    DestructElements(p, done);
    throw;
  }
}

void CElementArray::DestructElements(void* p, int n) {
  auto* rec = static_cast<unsigned char*>(p);
  for (int k = 0; k < n; ++k)
    DestructElement(rec + static_cast<std::size_t>(k) * m_recordSize);
}

void CElementArray::CopyElements(void* dst, const void* src, int n) {
  auto* d = static_cast<unsigned char*>(dst);
  auto* s = static_cast<unsigned char*>(const_cast<void*>(src));
  for (int k = 0; k < n; ++k) {
    const std::size_t off = static_cast<std::size_t>(k) * m_recordSize;
    CopyElement(d + off, s + off);
  }
}

void CElementArray::MyConstructElements(void* p, int n) {
  if (n > 0)
    ConstructElements(p, n);
}

void CElementArray::MyDestructElements(void* p, int n) {
  if (n > 0)
    DestructElements(p, n);
}

void CElementArray::MyCopyElements(void* dst, const void* src, int n) {
  if (n > 0)
    CopyElements(dst, src, n);
}

void CElementArray::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar.WriteCount(static_cast<std::uint64_t>(m_size));
    ar << m_archiveRecordSize << static_cast<std::uint32_t>(m_growBy);
    for (int i = 0; i < m_size; ++i)
      SerializeElement(ar, Record(i));
    return;
  }

  const std::uint64_t count = ar.ReadCount();
  std::uint32_t recordSize = 0;
  std::uint32_t growBy = 0;
  ar >> recordSize >> growBy;
  ar.CheckAvailable(count, std::max<std::uint32_t>(1, GetMinArchivedElementSize()));
  if (count > static_cast<std::uint64_t>(INT_MAX))
    ThrowArchiveException(CArchiveException::badIndex);
  // The record size read is not trusted: the element hooks read a fixed layout,
  // so storage keeps this kind's own record size whatever a file says.
  (void)recordSize;
  SetSize(static_cast<int>(count), -1);
  m_growBy = growBy <= kMaxArchivedGrowBy ? static_cast<int>(growBy) : 0;
  if (count == 0)
    return;

  // A constructed scratch record, released even when the archive throws midway.
  struct Scratch {
    CElementArray* owner;
    unsigned char* p = nullptr;
    bool constructed = false;
    ~Scratch() {
      if (constructed)
        owner->DestructElement(p);
      std::free(p);
    }
  } scratch{this};
  scratch.p = static_cast<unsigned char*>(std::malloc(m_recordSize ? m_recordSize : 1));
  if (!scratch.p)
    throw CMemoryException();
  ConstructElement(scratch.p);
  scratch.constructed = true;
  for (int i = 0; i < m_size; ++i) {
    SerializeElement(ar, scratch.p);
    CopyElement(Record(i), scratch.p);
  }
}

} // namespace meshcore
