#pragma once
// Open-addressing hash sets with quadratic probing, lazy deletion and growth
// into the next prime above twice the size.

#include "meshcore/containers/hash_key.h"
#include "meshcore/containers/next_prime.h"

#include <memory>
#include <new>

namespace meshcore {

template <class T> class AbsHTable {
public:
  virtual ~AbsHTable() = default;
  virtual int Insert(const T& x) = 0;
  virtual int Remove(const T& x) = 0;
  virtual int Find(T& x) const = 0;
  virtual int IsFound(const T& x) const = 0;
  virtual int IsEmpty() const = 0;
  virtual int IsFull() const = 0;
  virtual void MakeEmpty() = 0;
};

template <class T> class CHashTable : public AbsHTable<T> {
public:
  CHashTable() { Allocate(m_tableSize); }
  CHashTable(const CHashTable& other) : CHashTable() { *this = other; }
  CHashTable& operator=(const CHashTable& other);
  ~CHashTable() override = default;

  // 1 when added, 0 when an equal element is already active.
  int Insert(const T& x) override;
  // 1 when an active element was marked deleted. The occupancy counter is not
  // decreased, so deletions bring the next rehash closer.
  int Remove(const T& x) override;
  // 1 when found; x receives the stored element.
  int Find(T& x) const override;
  int IsFound(const T& x) const override;
  // Tests the occupancy counter: a set whose elements were all removed is not
  // empty by this test (use GetCount).
  int IsEmpty() const override { return m_occupied == 0; }
  int IsFull() const override { return 0; }
  void MakeEmpty() override;

  // Overwrites an equal active element (for elements compared on a key part),
  // returning 0; otherwise Insert.
  int InsertAndReplace(const T& x);
  int GetCount() const;
  // Slot-order iteration: GetFirst gives the first active slot or -1; GetNext
  // returns the element at pos and moves pos to the next active slot or -1.
  int GetFirst() const { return NextActive(0); }
  void GetNext(int& pos, T& element) const {
    element = m_slots[pos].element;
    pos = NextActive(pos + 1);
  }
  void Merge(const CHashTable& other);
  void SetDefaultSize(int size) { m_defaultSize = size; }
  int GetDefaultSize() const { return m_defaultSize; }
  int GetTableSize() const { return m_tableSize; }

protected:
  struct Slot {
    T element{};
    int info = HASH_EMPTY;
  };

  int Probe(const T& x) const {
    return m_slots ? detail::HashProbe(m_slots.get(), m_tableSize, x,
                                       [](const Slot& s) -> const T& { return s.element; })
                   : -1;
  }
  int NextActive(int pos) const;
  void Allocate(int size) { m_slots.reset(new (std::nothrow) Slot[size]); }
  void Rehash();

  std::unique_ptr<Slot[]> m_slots; // null only after a failed allocation
  int m_defaultSize = 5;
  int m_tableSize = 5;
  int m_occupied = 0; // insertions since the last rehash
};

// The set of unsigned integers used for material ids.
class CHashUInt : public CHashTable<unsigned int> {};

template <class T> CHashTable<T>& CHashTable<T>::operator=(const CHashTable& other) {
  if (this == &other)
    return *this;
  m_slots.reset();
  m_tableSize = other.m_tableSize;
  m_occupied = other.m_occupied;
  if (other.m_slots) {
    Allocate(m_tableSize);
    if (m_slots)
      for (int i = 0; i < m_tableSize; ++i)
        m_slots[i] = other.m_slots[i];
  }
  return *this;
}

template <class T> int CHashTable<T>::Insert(const T& x) {
  const int pos = Probe(x);
  if (pos < 0 || m_slots[pos].info == HASH_ACTIVE)
    return 0;
  m_slots[pos].element = x;
  m_slots[pos].info = HASH_ACTIVE;
  if (++m_occupied >= m_tableSize / 2)
    Rehash();
  return 1;
}

template <class T> int CHashTable<T>::Remove(const T& x) {
  const int pos = Probe(x);
  if (pos < 0 || m_slots[pos].info != HASH_ACTIVE)
    return 0;
  m_slots[pos].info = HASH_DELETED;
  return 1;
}

template <class T> int CHashTable<T>::Find(T& x) const {
  const int pos = Probe(x);
  if (pos < 0 || m_slots[pos].info != HASH_ACTIVE)
    return 0;
  x = m_slots[pos].element;
  return 1;
}

template <class T> int CHashTable<T>::IsFound(const T& x) const {
  const int pos = Probe(x);
  return pos >= 0 && m_slots[pos].info == HASH_ACTIVE;
}

template <class T> void CHashTable<T>::MakeEmpty() {
  m_occupied = 0;
  if (m_slots)
    for (int i = 0; i < m_tableSize; ++i)
      m_slots[i].info = HASH_EMPTY;
}

template <class T> int CHashTable<T>::InsertAndReplace(const T& x) {
  const int pos = Probe(x);
  if (pos >= 0 && m_slots[pos].info == HASH_ACTIVE) {
    m_slots[pos].element = x;
    return 0;
  }
  return Insert(x);
}

template <class T> int CHashTable<T>::GetCount() const {
  int n = 0;
  if (m_slots)
    for (int i = 0; i < m_tableSize; ++i)
      n += m_slots[i].info == HASH_ACTIVE;
  return n;
}

template <class T> int CHashTable<T>::NextActive(int pos) const {
  if (m_slots)
    for (; pos < m_tableSize; ++pos)
      if (m_slots[pos].info == HASH_ACTIVE)
        return pos;
  return -1;
}

template <class T> void CHashTable<T>::Merge(const CHashTable& other) {
  for (int pos = other.GetFirst(); pos >= 0; pos = other.NextActive(pos + 1))
    Insert(other.m_slots[pos].element);
}

template <class T> void CHashTable<T>::Rehash() {
  std::unique_ptr<Slot[]> old = std::move(m_slots);
  const int oldSize = m_tableSize;
  m_occupied = 0;
  m_tableSize = static_cast<int>(NextPrime(2u * static_cast<unsigned>(oldSize)));
  Allocate(m_tableSize);
  if (!m_slots)
    return;
  // Slot order, through the virtual Insert, so that derived sets see every element.
  for (int i = 0; i < oldSize; ++i)
    if (old[i].info == HASH_ACTIVE)
      Insert(old[i].element);
}

} // namespace meshcore
