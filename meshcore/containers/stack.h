#pragma once
// Array-backed stack used by traversals; starts with room for 5 and doubles.

#include <algorithm>
#include <memory>
#include <utility>

namespace meshcore {

template <class T> class AbsStack {
public:
  virtual ~AbsStack() = default;
  virtual void Push(const T& x) = 0;
  virtual void Pop(T& x) = 0;
  virtual void Pop() = 0;
  virtual T* Top() = 0;
  virtual int IsEmpty() const = 0;
  virtual int IsFull() const = 0;
  virtual void MakeEmpty() = 0;
};

template <class T> class CStack : public AbsStack<T> {
public:
  CStack() : m_data(new T[m_capacity]) {}
  CStack(const CStack& other)
      : m_capacity(other.m_capacity), m_top(other.m_top), m_data(new T[other.m_capacity]) {
    std::copy_n(other.m_data.get(), m_top + 1, m_data.get());
  }
  CStack& operator=(const CStack& other) {
    if (this != &other) {
      CStack copy(other);
      std::swap(m_capacity, copy.m_capacity);
      std::swap(m_top, copy.m_top);
      std::swap(m_data, copy.m_data);
    }
    return *this;
  }

  void Push(const T& x) override {
    if (m_top + 1 == m_capacity) {
      T value = x; // x may live in the block being replaced
      std::unique_ptr<T[]> grown(new T[2 * static_cast<std::size_t>(m_capacity)]);
      for (int i = 0; i <= m_top; ++i)
        grown[i] = std::move(m_data[i]);
      m_data = std::move(grown);
      m_capacity *= 2;
      m_data[++m_top] = std::move(value);
      return;
    }
    m_data[++m_top] = x;
  }
  // Popping an empty stack does nothing (x is left as it was).
  void Pop(T& x) override {
    if (m_top >= 0)
      x = m_data[m_top--];
  }
  void Pop() override {
    if (m_top >= 0)
      --m_top;
  }
  // Null when empty.
  T* Top() override { return m_top >= 0 ? &m_data[m_top] : nullptr; }
  int IsEmpty() const override { return m_top == -1; }
  int IsFull() const override { return 0; }
  void MakeEmpty() override { m_top = -1; }

  int GetCount() const { return m_top + 1; }
  int GetCapacity() const { return m_capacity; }

private:
  int m_capacity = 5;
  int m_top = -1;
  std::unique_ptr<T[]> m_data;
};

} // namespace meshcore
