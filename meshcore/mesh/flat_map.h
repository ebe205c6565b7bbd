#pragma once
// An insertion-ordered map over a flat entry vector with an open-addressing
// index. The mesh graphs hold millions of entries: a node per entry would cost
// an allocation each, and iteration must follow insertion so that anything
// written from a graph is deterministic.

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace meshcore {

template <class K> struct CFlatMapHash {
  std::uint32_t operator()(const K& k) const {
    // Fibonacci hashing: the index keeps the high bits, which this spreads well.
    return static_cast<std::uint32_t>(
        static_cast<std::uint64_t>(static_cast<std::uint32_t>(k)) * 0x9E3779B97F4A7C15ull >> 32);
  }
};

template <class K, class V, class H = CFlatMapHash<K>> class CFlatMap {
public:
  using Entry = std::pair<K, V>;

  int GetCount() const { return static_cast<int>(m_entries.size()); }
  bool IsEmpty() const { return m_entries.empty(); }
  void RemoveAll() {
    m_entries.clear();
    m_index.clear();
    m_mask = 0;
  }
  // Room for n entries without rehashing or moving them.
  void Reserve(std::size_t n) {
    m_entries.reserve(n);
    if (n * 2 > m_index.size())
      Rehash(n * 2);
  }

  V* PLookup(const K& k) {
    const std::uint32_t e = FindEntry(k);
    return e ? &m_entries[e - 1].second : nullptr;
  }
  const V* PLookup(const K& k) const {
    const std::uint32_t e = FindEntry(k);
    return e ? &m_entries[e - 1].second : nullptr;
  }
  int Lookup(const K& k, V& out) const {
    const V* v = PLookup(k);
    if (!v)
      return 0;
    out = *v;
    return 1;
  }
  bool Contains(const K& k) const { return FindEntry(k) != 0; }

  // The value of k, default-constructed and appended when k is new; inserted is set
  // accordingly. The reference stays valid until the next insertion.
  V& FindOrAdd(const K& k, bool* inserted = nullptr) {
    if ((m_entries.size() + 1) * 2 > m_index.size())
      Rehash(m_index.empty() ? 16 : m_index.size() * 2);
    std::size_t pos = H()(k) & m_mask;
    while (m_index[pos]) {
      Entry& e = m_entries[m_index[pos] - 1];
      if (e.first == k) {
        if (inserted)
          *inserted = false;
        return e.second;
      }
      pos = (pos + 1) & m_mask;
    }
    m_entries.emplace_back(k, V());
    m_index[pos] = static_cast<std::uint32_t>(m_entries.size());
    if (inserted)
      *inserted = true;
    return m_entries.back().second;
  }
  V& operator[](const K& k) { return FindOrAdd(k); }
  // 1 when k was added, 0 when its value was replaced.
  int SetAt(const K& k, const V& v) {
    bool inserted = false;
    FindOrAdd(k, &inserted) = v;
    return inserted ? 1 : 0;
  }

  // Bulk building: appends an entry without indexing it (the caller knows the
  // key is new), then RebuildIndex indexes every entry in one pass, which is
  // much faster than indexing entries one by one in a large map.
  Entry& AppendUnindexed(const K& k) {
    m_entries.emplace_back(k, V());
    return m_entries.back();
  }
  void RebuildIndex() { Rehash(m_entries.size() * 2); }

  // Entries in insertion order.
  auto begin() { return m_entries.begin(); }
  auto end() { return m_entries.end(); }
  auto begin() const { return m_entries.begin(); }
  auto end() const { return m_entries.end(); }
  Entry& GetAt(int i) { return m_entries[static_cast<std::size_t>(i)]; }
  const Entry& GetAt(int i) const { return m_entries[static_cast<std::size_t>(i)]; }

private:
  // Entry number + 1 of k, or 0.
  std::uint32_t FindEntry(const K& k) const {
    if (m_index.empty())
      return 0;
    std::size_t pos = H()(k) & m_mask;
    while (const std::uint32_t e = m_index[pos]) {
      if (m_entries[e - 1].first == k)
        return e;
      pos = (pos + 1) & m_mask;
    }
    return 0;
  }
  void Rehash(std::size_t want) {
    std::size_t size = 16;
    while (size < want)
      size *= 2;
    m_index.assign(size, 0);
    m_mask = size - 1;
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
      std::size_t pos = H()(m_entries[i].first) & m_mask;
      while (m_index[pos])
        pos = (pos + 1) & m_mask;
      m_index[pos] = static_cast<std::uint32_t>(i + 1);
    }
  }

  std::vector<Entry> m_entries;
  std::vector<std::uint32_t> m_index; // entry number + 1; 0 marks a free slot
  std::size_t m_mask = 0;
};

} // namespace meshcore
