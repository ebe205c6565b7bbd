#pragma once
// Open-addressing hash map with the probing and growth of CHashTable; starts
// with 47 slots.

#include "meshcore/containers/hash_key.h"
#include "meshcore/containers/next_prime.h"

#include <memory>
#include <new>

namespace meshcore {

template <class KEY, class ARG_KEY, class VALUE> class CHashMap {
public:
  CHashMap() { Allocate(m_tableSize); }
  CHashMap(const CHashMap& other) : CHashMap() { *this = other; }
  CHashMap& operator=(const CHashMap& other);
  virtual ~CHashMap() = default;

  // 1 when the key was added, 0 when it was active (its value is replaced).
  int SetAt(ARG_KEY key, const VALUE& value);
  // 1 and the value when the key is active.
  int Lookup(ARG_KEY key, VALUE& value) const;
  // The stored value of an active key, or null.
  VALUE* PLookup(ARG_KEY key);
  const VALUE* PLookup(ARG_KEY key) const;
  // Marks the key's slot deleted; the occupancy counter is kept, as in the sets.
  virtual int RemoveKey(ARG_KEY key);
  virtual void MakeEmpty();
  void RemoveAll() { MakeEmpty(); }
  int IsEmpty() const { return m_occupied == 0; }
  int GetCount() const;
  // Slot-order iteration, as in CHashTable.
  int GetFirst() const { return NextActive(0); }
  void GetNext(int& pos, KEY& key, VALUE& value) const {
    key = m_slots[pos].key;
    value = m_slots[pos].value;
    pos = NextActive(pos + 1);
  }
  int GetTableSize() const { return m_tableSize; }

protected:
  struct Slot {
    KEY key{};
    VALUE value{};
    int info = HASH_EMPTY;
  };

  int Probe(const KEY& key) const {
    return m_slots ? detail::HashProbe(m_slots.get(), m_tableSize, key,
                                       [](const Slot& s) -> const KEY& { return s.key; })
                   : -1;
  }
  int NextActive(int pos) const;
  void Allocate(int size) { m_slots.reset(new (std::nothrow) Slot[size]); }
  void Rehash();

  std::unique_ptr<Slot[]> m_slots; // null only after a failed allocation
  int m_tableSize = 47;
  int m_occupied = 0; // insertions since the last rehash
};

template <class KEY, class ARG_KEY, class VALUE>
CHashMap<KEY, ARG_KEY, VALUE>& CHashMap<KEY, ARG_KEY, VALUE>::operator=(const CHashMap& other) {
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

template <class KEY, class ARG_KEY, class VALUE>
int CHashMap<KEY, ARG_KEY, VALUE>::SetAt(ARG_KEY key, const VALUE& value) {
  const int pos = Probe(key);
  if (pos < 0)
    return 0;
  Slot& s = m_slots[pos];
  if (s.info == HASH_ACTIVE) {
    s.value = value;
    return 0;
  }
  s.key = key;
  s.value = value;
  s.info = HASH_ACTIVE;
  if (++m_occupied >= m_tableSize / 2)
    Rehash();
  return 1;
}

template <class KEY, class ARG_KEY, class VALUE>
int CHashMap<KEY, ARG_KEY, VALUE>::Lookup(ARG_KEY key, VALUE& value) const {
  const VALUE* v = PLookup(key);
  if (!v)
    return 0;
  value = *v;
  return 1;
}

template <class KEY, class ARG_KEY, class VALUE>
VALUE* CHashMap<KEY, ARG_KEY, VALUE>::PLookup(ARG_KEY key) {
  const int pos = Probe(key);
  return pos >= 0 && m_slots[pos].info == HASH_ACTIVE ? &m_slots[pos].value : nullptr;
}

template <class KEY, class ARG_KEY, class VALUE>
const VALUE* CHashMap<KEY, ARG_KEY, VALUE>::PLookup(ARG_KEY key) const {
  const int pos = Probe(key);
  return pos >= 0 && m_slots[pos].info == HASH_ACTIVE ? &m_slots[pos].value : nullptr;
}

template <class KEY, class ARG_KEY, class VALUE>
int CHashMap<KEY, ARG_KEY, VALUE>::RemoveKey(ARG_KEY key) {
  const int pos = Probe(key);
  if (pos < 0 || m_slots[pos].info != HASH_ACTIVE)
    return 0;
  m_slots[pos].info = HASH_DELETED;
  return 1;
}

template <class KEY, class ARG_KEY, class VALUE> void CHashMap<KEY, ARG_KEY, VALUE>::MakeEmpty() {
  m_occupied = 0;
  if (m_slots)
    for (int i = 0; i < m_tableSize; ++i)
      m_slots[i].info = HASH_EMPTY;
}

template <class KEY, class ARG_KEY, class VALUE>
int CHashMap<KEY, ARG_KEY, VALUE>::GetCount() const {
  int n = 0;
  if (m_slots)
    for (int i = 0; i < m_tableSize; ++i)
      n += m_slots[i].info == HASH_ACTIVE;
  return n;
}

template <class KEY, class ARG_KEY, class VALUE>
int CHashMap<KEY, ARG_KEY, VALUE>::NextActive(int pos) const {
  if (m_slots)
    for (; pos < m_tableSize; ++pos)
      if (m_slots[pos].info == HASH_ACTIVE)
        return pos;
  return -1;
}

template <class KEY, class ARG_KEY, class VALUE> void CHashMap<KEY, ARG_KEY, VALUE>::Rehash() {
  std::unique_ptr<Slot[]> old = std::move(m_slots);
  const int oldSize = m_tableSize;
  m_occupied = 0;
  m_tableSize = static_cast<int>(NextPrime(2u * static_cast<unsigned>(oldSize)));
  Allocate(m_tableSize);
  if (!m_slots)
    return;
  for (int i = 0; i < oldSize; ++i) {
    if (old[i].info != HASH_ACTIVE)
      continue;
    // Keys of a rehash are distinct and the new table is at most a quarter
    // full, so each lands on an empty slot and no nested rehash can start.
    const int pos = Probe(old[i].key);
    Slot& s = m_slots[pos];
    s.key = std::move(old[i].key);
    s.value = std::move(old[i].value);
    s.info = HASH_ACTIVE;
    ++m_occupied;
  }
}

} // namespace meshcore
