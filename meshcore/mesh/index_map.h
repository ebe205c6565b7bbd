#pragma once
// The old-to-new index maps of the compactions (and the index sets built like
// them): int keys to int values, iterated in insertion order. Keys are mostly
// dense indices, so those live in a direct table; other keys (negative, or far
// beyond the others) fall back to hashing.

#include "meshcore/mesh/flat_map.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace meshcore {

class CIndexMap {
public:
  using Entry = std::pair<int, int>;

  int GetCount() const { return static_cast<int>(m_entries.size()); }
  bool IsEmpty() const { return m_entries.empty(); }
  void RemoveAll() {
    m_entries.clear();
    m_direct.clear();
    m_hashed.RemoveAll();
  }
  // Room for n entries with keys in [0, n).
  void Reserve(std::size_t n) {
    m_entries.reserve(n);
    if (n > m_direct.size())
      GrowDirect(n);
  }

  int* PLookup(int k) {
    const std::uint32_t e = Find(k);
    return e ? &m_entries[e - 1].second : nullptr;
  }
  const int* PLookup(int k) const {
    const std::uint32_t e = Find(k);
    return e ? &m_entries[e - 1].second : nullptr;
  }
  int Lookup(int k, int& out) const {
    const int* v = PLookup(k);
    if (!v)
      return 0;
    out = *v;
    return 1;
  }
  bool Contains(int k) const { return Find(k) != 0; }

  // The value of k, 0 and appended when k is new.
  int& FindOrAdd(int k, bool* inserted = nullptr) {
    if (const std::uint32_t e = Find(k)) {
      if (inserted)
        *inserted = false;
      return m_entries[e - 1].second;
    }
    m_entries.emplace_back(k, 0);
    const auto e = static_cast<std::uint32_t>(m_entries.size());
    if (k >= 0 && static_cast<std::size_t>(k) >= m_direct.size() &&
        static_cast<std::size_t>(k) < 4 * m_entries.size() + 1024)
      GrowDirect(std::max(static_cast<std::size_t>(k) + 1, m_direct.size() * 2));
    if (k >= 0 && static_cast<std::size_t>(k) < m_direct.size())
      m_direct[static_cast<std::size_t>(k)] = e;
    else
      m_hashed.SetAt(k, e);
    if (inserted)
      *inserted = true;
    return m_entries.back().second;
  }
  int& operator[](int k) { return FindOrAdd(k); }
  // 1 when k was added, 0 when its value was replaced.
  int SetAt(int k, int v) {
    bool inserted = false;
    FindOrAdd(k, &inserted) = v;
    return inserted ? 1 : 0;
  }

  auto begin() { return m_entries.begin(); }
  auto end() { return m_entries.end(); }
  auto begin() const { return m_entries.begin(); }
  auto end() const { return m_entries.end(); }
  Entry& GetAt(int i) { return m_entries[static_cast<std::size_t>(i)]; }
  const Entry& GetAt(int i) const { return m_entries[static_cast<std::size_t>(i)]; }

private:
  // Entry number + 1 of k, or 0.
  std::uint32_t Find(int k) const {
    if (k >= 0 && static_cast<std::size_t>(k) < m_direct.size())
      return m_direct[static_cast<std::size_t>(k)];
    const std::uint32_t* e = m_hashed.PLookup(k);
    return e ? *e : 0;
  }
  // Extends the direct table and moves the hashed keys it now covers into it.
  void GrowDirect(std::size_t size) {
    m_direct.resize(size, 0);
    if (m_hashed.IsEmpty())
      return;
    CFlatMap<int, std::uint32_t> rest;
    for (const auto& [key, entry] : m_hashed) {
      if (key >= 0 && static_cast<std::size_t>(key) < size)
        m_direct[static_cast<std::size_t>(key)] = entry;
      else
        rest.SetAt(key, entry);
    }
    m_hashed = std::move(rest);
  }

  std::vector<Entry> m_entries;
  std::vector<std::uint32_t> m_direct; // entry number + 1 by key; 0 when absent
  CFlatMap<int, std::uint32_t> m_hashed;
};

} // namespace meshcore
