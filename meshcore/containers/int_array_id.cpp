#include "meshcore/containers/int_array_id.h"

#include "meshcore/platform/exceptions.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace meshcore {

MESHCORE_IMPLEMENT_DYNAMIC(CIntArrayID, CObject)

CIntArrayID::CIntArrayID(int n, int keepSize) : CIntArrayID() {
  if (keepSize)
    SetSize(n);
  else
    Init(n);
}

CIntArrayID::CIntArrayID(CIntArrayID&& other) noexcept
    : CObject(), m_size(other.m_size), m_capacity(other.m_capacity) {
  if (OnHeap())
    m_heap = other.m_heap;
  else
    std::memcpy(m_inline, other.m_inline, sizeof m_inline);
  other.m_size = other.m_capacity = 0;
}

CIntArrayID::~CIntArrayID() {
  Release();
}

CIntArrayID& CIntArrayID::operator=(const CIntArrayID& other) {
  Copy(other);
  return *this;
}

CIntArrayID& CIntArrayID::operator=(CIntArrayID&& other) noexcept {
  if (this != &other) {
    Release();
    m_size = other.m_size;
    m_capacity = other.m_capacity;
    if (OnHeap())
      m_heap = other.m_heap;
    else
      std::memcpy(m_inline, other.m_inline, sizeof m_inline);
    other.m_size = other.m_capacity = 0;
  }
  return *this;
}

void CIntArrayID::Release() {
  if (OnHeap())
    std::free(m_heap);
  m_size = m_capacity = 0;
}

void CIntArrayID::Reallocate(int capacity) {
  const int keep = std::min(m_size, capacity);
  if (capacity <= kInline) {
    if (OnHeap()) {
      int* heap = m_heap;
      std::memcpy(m_inline, heap, sizeof(int) * static_cast<std::size_t>(keep));
      std::free(heap);
    }
  } else if (!OnHeap()) {
    auto* p = static_cast<int*>(std::malloc(sizeof(int) * static_cast<std::size_t>(capacity)));
    if (!p)
      throw CMemoryException();
    if (keep > 0)
      std::memcpy(p, m_inline, sizeof(int) * static_cast<std::size_t>(keep));
    m_heap = p;
  } else {
    void* p = std::realloc(m_heap, sizeof(int) * static_cast<std::size_t>(capacity));
    if (!p)
      throw CMemoryException();
    m_heap = static_cast<int*>(p);
  }
  m_capacity = capacity;
}

void CIntArrayID::SetSizeSlow(int n) {
  if (n <= 0) {
    Release();
    return;
  }
  if (m_capacity == 0) {
    Reallocate(n); // exactly n on the first allocation
  } else if (n > m_capacity) {
    const int step = std::clamp(m_size / 8, 4, 1024);
    const long long wanted = static_cast<long long>(m_capacity) + step;
    Reallocate(static_cast<int>(std::clamp<long long>(wanted, n, INT_MAX)));
  }
  if (n > m_size)
    std::memset(Data() + m_size, 0, sizeof(int) * static_cast<std::size_t>(n - m_size));
  m_size = n;
}

void CIntArrayID::InsertAt(int i, int value, int n) {
  if (n <= 0)
    return;
  if (i >= m_size) {
    SetSize(i + n);
  } else {
    const int oldSize = m_size;
    SetSize(oldSize + n);
    int* d = Data();
    std::memmove(d + i + n, d + i, sizeof(int) * static_cast<std::size_t>(oldSize - i));
  }
  std::fill_n(Data() + i, n, value);
}

void CIntArrayID::InsertAt(int i, const CIntArrayID* other) {
  if (!other || other->m_size <= 0)
    return;
  if (other == this) {
    const CIntArrayID copy(*this);
    InsertAt(i, &copy);
    return;
  }
  InsertAt(i, 0, other->m_size);
  std::memcpy(Data() + i, other->Data(), sizeof(int) * static_cast<std::size_t>(other->m_size));
}

void CIntArrayID::RemoveAt(int i, int n) {
  if (n <= 0)
    return;
  const int moved = m_size - (i + n);
  if (moved > 0) {
    int* d = Data();
    std::memmove(d + i, d + i + n, sizeof(int) * static_cast<std::size_t>(moved));
  }
  m_size -= n;
}

int CIntArrayID::Append(const CIntArrayID& other) {
  const int oldSize = m_size;
  const int n = other.m_size;
  if (n > 0) {
    SetSize(oldSize + n);
    std::memcpy(Data() + oldSize, other.Data(), sizeof(int) * static_cast<std::size_t>(n));
  }
  return oldSize;
}

void CIntArrayID::Copy(const CIntArrayID& other) {
  if (this == &other)
    return;
  SetSize(other.m_size);
  if (m_size > 0)
    std::memcpy(Data(), other.Data(), sizeof(int) * static_cast<std::size_t>(m_size));
}

void CIntArrayID::FreeExtra() {
  if (m_capacity > m_size)
    m_size == 0 ? Release() : Reallocate(m_size);
}

} // namespace meshcore
