#pragma once
// A map for integer and edge (pair of integers) keys that iterates in insertion
// order, so that anything built by walking it never depends on hashing or
// addresses. Lookups go through a hash index into a vector of entries.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace meshcore {

template <class Key> struct OrderedMapHash {
  std::size_t operator()(const Key& k) const { return std::hash<Key>()(k); }
};

template <class A, class B> struct OrderedMapHash<std::pair<A, B>> {
  std::size_t operator()(const std::pair<A, B>& k) const {
    const std::uint64_t a = static_cast<std::uint64_t>(k.first);
    const std::uint64_t b = static_cast<std::uint64_t>(k.second);
    return std::hash<std::uint64_t>()(a * 0x9E3779B97F4A7C15ull ^ (b + (a << 6) + (a >> 2)));
  }
};

template <class Key, class Value, class Hash = OrderedMapHash<Key>> class COrderedMap {
public:
  using key_type = Key;
  using mapped_type = Value;
  using value_type = std::pair<Key, Value>;
  using size_type = std::size_t;

private:
  using Slot = std::optional<value_type>; // empty: erased, skipped by iteration

  template <bool Const> class Iter {
  public:
    using SlotPtr = std::conditional_t<Const, const Slot*, Slot*>;
    using iterator_category = std::forward_iterator_tag;
    using value_type = COrderedMap::value_type;
    using difference_type = std::ptrdiff_t;
    using reference = std::conditional_t<Const, const value_type&, value_type&>;
    using pointer = std::conditional_t<Const, const value_type*, value_type*>;

    Iter() = default;
    Iter(SlotPtr p, SlotPtr end) : m_p(p), m_end(end) { Skip(); }
    operator Iter<true>() const { return Iter<true>(m_p, m_end); }

    reference operator*() const { return **m_p; }
    pointer operator->() const { return &**m_p; }
    Iter& operator++() {
      ++m_p;
      Skip();
      return *this;
    }
    Iter operator++(int) {
      Iter t = *this;
      ++*this;
      return t;
    }
    bool operator==(const Iter& o) const { return m_p == o.m_p; }

  private:
    friend class COrderedMap;
    void Skip() {
      while (m_p != m_end && !m_p->has_value())
        ++m_p;
    }
    SlotPtr m_p = nullptr;
    SlotPtr m_end = nullptr;
  };

public:
  using iterator = Iter<false>;
  using const_iterator = Iter<true>;

  COrderedMap() = default;

  size_type size() const { return m_index.size(); }
  bool empty() const { return m_index.empty(); }
  void clear() {
    m_slots.clear();
    m_index.clear();
  }
  void reserve(size_type n) {
    m_slots.reserve(n);
    m_index.reserve(n);
  }

  iterator begin() { return iterator(m_slots.data(), m_slots.data() + m_slots.size()); }
  iterator end() { return MakeIter(m_slots.size()); }
  const_iterator begin() const {
    return const_iterator(m_slots.data(), m_slots.data() + m_slots.size());
  }
  const_iterator end() const { return MakeIter(m_slots.size()); }
  const_iterator cbegin() const { return begin(); }
  const_iterator cend() const { return end(); }

  iterator find(const Key& key) {
    auto it = m_index.find(key);
    return it == m_index.end() ? end() : MakeIter(it->second);
  }
  const_iterator find(const Key& key) const {
    auto it = m_index.find(key);
    return it == m_index.end() ? end() : MakeIter(it->second);
  }
  bool contains(const Key& key) const { return m_index.count(key) != 0; }
  size_type count(const Key& key) const { return m_index.count(key); }

  // Pointer to the value of key, or null.
  Value* Lookup(const Key& key) {
    auto it = m_index.find(key);
    return it == m_index.end() ? nullptr : &m_slots[it->second]->second;
  }
  const Value* Lookup(const Key& key) const {
    auto it = m_index.find(key);
    return it == m_index.end() ? nullptr : &m_slots[it->second]->second;
  }

  Value& at(const Key& key) {
    Value* v = Lookup(key);
    if (!v)
      throw std::out_of_range("COrderedMap::at");
    return *v;
  }
  const Value& at(const Key& key) const {
    const Value* v = Lookup(key);
    if (!v)
      throw std::out_of_range("COrderedMap::at");
    return *v;
  }

  // Inserting may invalidate iterators; an existing key keeps its value and place.
  template <class... Args> std::pair<iterator, bool> try_emplace(const Key& key, Args&&... args) {
    auto it = m_index.find(key);
    if (it != m_index.end())
      return {MakeIter(it->second), false};
    Compact();
    m_slots.emplace_back(std::in_place, std::piecewise_construct, std::forward_as_tuple(key),
                         std::forward_as_tuple(std::forward<Args>(args)...));
    m_index.emplace(key, m_slots.size() - 1);
    return {MakeIter(m_slots.size() - 1), true};
  }
  std::pair<iterator, bool> insert(const value_type& v) { return try_emplace(v.first, v.second); }
  std::pair<iterator, bool> insert(const Key& key, const Value& value) {
    return try_emplace(key, value);
  }
  // Sets the value of key, adding the key at the end when it is new.
  std::pair<iterator, bool> insert_or_assign(const Key& key, Value value) {
    auto r = try_emplace(key);
    r.first->second = std::move(value);
    return r;
  }
  Value& operator[](const Key& key) { return try_emplace(key).first->second; }

  // Erasing invalidates only iterators to the erased entry; the others keep their order.
  size_type erase(const Key& key) {
    auto it = m_index.find(key);
    if (it == m_index.end())
      return 0;
    m_slots[it->second].reset();
    m_index.erase(it);
    ++m_erased;
    return 1;
  }
  iterator erase(const_iterator pos) {
    const size_type i = static_cast<size_type>(pos.m_p - m_slots.data());
    erase(m_slots[i]->first);
    return MakeIter(i + 1);
  }

private:
  iterator MakeIter(size_type i) {
    return iterator(m_slots.data() + i, m_slots.data() + m_slots.size());
  }
  const_iterator MakeIter(size_type i) const {
    return const_iterator(m_slots.data() + i, m_slots.data() + m_slots.size());
  }
  // Drops erased slots once they outnumber the live ones.
  void Compact() {
    if (m_erased < 16 || m_erased < m_index.size())
      return;
    std::vector<Slot> slots;
    slots.reserve(m_index.size() + 1);
    for (auto& s : m_slots)
      if (s)
        slots.push_back(std::move(s));
    m_slots = std::move(slots);
    for (size_type i = 0; i < m_slots.size(); ++i)
      m_index[m_slots[i]->first] = i;
    m_erased = 0;
  }

  std::vector<Slot> m_slots;
  std::unordered_map<Key, size_type, Hash> m_index;
  size_type m_erased = 0;
};

} // namespace meshcore
