#pragma once
// Growable int array holding a face's point indices and the per-point adjacency
// lists. Up to four values live inside the object, so a mesh of small faces does
// not cost one heap block per face. The object holds no pointer to itself and
// may be moved as raw bytes (it is stored inside element records).

#include "meshcore/platform/object.h"

namespace meshcore {

class CIntArrayID : public CObject {
  MESHCORE_DECLARE_DYNAMIC(CIntArrayID)

public:
  CIntArrayID() {}
  // keepSize non-zero: n zeroed elements; 0: room for n, no elements.
  CIntArrayID(int n, int keepSize);
  CIntArrayID(const CIntArrayID& other) : CIntArrayID() { Copy(other); }
  CIntArrayID(CIntArrayID&& other) noexcept;
  ~CIntArrayID() override;
  virtual CIntArrayID& operator=(const CIntArrayID& other);
  CIntArrayID& operator=(CIntArrayID&& other) noexcept;

  int GetSize() const { return m_size; }
  int GetCount() const { return m_size; }
  int GetUpperBound() const { return m_size - 1; }
  int GetCapacity() const { return m_capacity; }
  bool IsEmpty() const { return m_size == 0; }
  // Null when nothing is allocated.
  int* GetData() { return Data(); }
  const int* GetData() const { return Data(); }

  int& operator[](int i) { return Data()[i]; }
  int operator[](int i) const { return Data()[i]; }
  int GetAt(int i) const { return Data()[i]; }
  int& ElementAt(int i) { return Data()[i]; }
  void SetAt(int i, int value) { Data()[i] = value; }

  // New elements are 0. The first allocation holds exactly n; later growth adds
  // size / 8 clamped to 4..1024. Shrinking keeps the block.
  // Sizes within the current room, or a first size that fits inline, stay in
  // the header: loaders size millions of small faces this way.
  void SetSize(int n) {
    if (n > 0 && (n <= m_capacity || (m_capacity == 0 && n <= kInline))) {
      if (m_capacity == 0)
        m_capacity = n; // exactly n, inline
      if (n > m_size) {
        int* d = Data();
        for (int i = m_size; i < n; ++i)
          d[i] = 0;
      }
      m_size = n;
      return;
    }
    SetSizeSlow(n);
  }
  // Room for n values, size 0.
  void Init(int n) {
    SetSize(n);
    m_size = 0;
  }
  void RemoveAll() { SetSize(0); }
  void SetAtGrow(int i, int value) {
    if (i >= m_size)
      SetSize(i + 1);
    Data()[i] = value;
  }
  int Add(int value) {
    if (m_size < m_capacity) {
      Data()[m_size] = value;
      return m_size++;
    }
    const int index = m_size;
    SetSize(index + 1);
    Data()[index] = value;
    return index;
  }
  void InsertAt(int i, int value, int n = 1);
  void InsertAt(int i, const CIntArrayID* other);
  void RemoveAt(int i, int n = 1);
  // Returns the old size.
  int Append(const CIntArrayID& other);
  void Copy(const CIntArrayID& other);
  void FreeExtra();

private:
  static constexpr int kInline = 4;

  bool OnHeap() const { return m_capacity > kInline; }
  int* Data() { return m_capacity == 0 ? nullptr : OnHeap() ? m_heap : m_inline; }
  const int* Data() const { return m_capacity == 0 ? nullptr : OnHeap() ? m_heap : m_inline; }
  // Moves the first min(size, capacity) values into storage for capacity values.
  void Reallocate(int capacity);
  void Release();
  void SetSizeSlow(int n);

  int m_size = 0;
  int m_capacity = 0; // the inline room is used while this is at most kInline
  union {
    int* m_heap = nullptr;
    int m_inline[kInline];
  };
};

} // namespace meshcore
