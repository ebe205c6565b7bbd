#pragma once
// Typed growable array with the framework's array members, plus GetData with
// its count, ElementAt and Copy.

#include <algorithm>
#include <iterator>
#include <vector>

namespace meshcore {

template <class T, class ARG> class CArrayID {
public:
  CArrayID() = default;
  CArrayID(const CArrayID& other) = default;
  CArrayID& operator=(const CArrayID& other) {
    Copy(other);
    return *this;
  }
  virtual ~CArrayID() = default;

  int GetSize() const { return static_cast<int>(m_data.size()); }
  int GetCount() const { return GetSize(); }
  int GetUpperBound() const { return GetSize() - 1; }
  bool IsEmpty() const { return m_data.empty(); }

  // growBy is accepted for the framework's signature; storage growth is the vector's.
  void SetSize(int n, int growBy = -1) {
    (void)growBy;
    m_data.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  }
  void RemoveAll() { m_data.clear(); }
  void FreeExtra() { m_data.shrink_to_fit(); }

  T GetAt(int i) const { return m_data[static_cast<std::size_t>(i)]; }
  void SetAt(int i, ARG value) { m_data[static_cast<std::size_t>(i)] = value; }
  T& ElementAt(int i) { return m_data[static_cast<std::size_t>(i)]; }
  const T& ElementAt(int i) const { return m_data[static_cast<std::size_t>(i)]; }
  T& operator[](int i) { return m_data[static_cast<std::size_t>(i)]; }
  const T& operator[](int i) const { return m_data[static_cast<std::size_t>(i)]; }

  T* GetData() { return m_data.empty() ? nullptr : m_data.data(); }
  const T* GetData() const { return m_data.empty() ? nullptr : m_data.data(); }
  T* GetData(int& count) {
    count = GetSize();
    return GetData();
  }
  const T* GetData(int& count) const {
    count = GetSize();
    return GetData();
  }

  void SetAtGrow(int i, ARG value) {
    if (i >= GetSize())
      SetSize(i + 1);
    m_data[static_cast<std::size_t>(i)] = value;
  }
  int Add(ARG value) {
    m_data.push_back(value);
    return GetSize() - 1;
  }
  // Beyond the end the array first grows to i with default elements.
  void InsertAt(int i, ARG value, int n = 1) {
    if (n <= 0)
      return;
    const T copy = value; // value may refer into the array
    if (i >= GetSize())
      SetSize(i);
    m_data.insert(m_data.begin() + i, static_cast<std::size_t>(n), copy);
  }
  void RemoveAt(int i, int n = 1) {
    if (n > 0)
      m_data.erase(m_data.begin() + i, m_data.begin() + i + n);
  }
  int Append(const CArrayID& other) {
    const int oldSize = GetSize();
    if (this == &other) {
      m_data.reserve(m_data.size() * 2);
      std::copy_n(m_data.begin(), oldSize, std::back_inserter(m_data));
    } else {
      m_data.insert(m_data.end(), other.m_data.begin(), other.m_data.end());
    }
    return oldSize;
  }
  void Copy(const CArrayID& other) {
    if (this != &other)
      m_data = other.m_data;
  }

private:
  std::vector<T> m_data;
};

} // namespace meshcore
