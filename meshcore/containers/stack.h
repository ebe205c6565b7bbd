#pragma once
// Array-backed stack used by traversals; starts with room for 5 and doubles.

#include <utility>
#include <vector>

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
  CStack() : m_data(5) {}

  void Push(const T& x) override {
    const std::size_t next = static_cast<std::size_t>(m_top + 1);
    if (next == m_data.size()) {
      T value = x; // x may live in the block being replaced
      std::vector<T> grown(2 * m_data.size());
      for (std::size_t i = 0; i < next; ++i)
        grown[i] = std::move(m_data[i]);
      grown[next] = std::move(value);
      m_data = std::move(grown);
    } else {
      m_data[next] = x;
    }
    ++m_top;
  }
  // Underflow is ignored: popping an empty stack does nothing (x is left as it was).
  void Pop(T& x) override {
    if (m_top >= 0)
      x = m_data[static_cast<std::size_t>(m_top--)];
  }
  void Pop() override {
    if (m_top >= 0)
      --m_top;
  }
  // Null when empty.
  T* Top() override { return m_top >= 0 ? &m_data[static_cast<std::size_t>(m_top)] : nullptr; }
  int IsEmpty() const override { return m_top == -1; }
  int IsFull() const override { return 0; }
  void MakeEmpty() override { m_top = -1; }

  int GetCount() const { return m_top + 1; }
  int GetCapacity() const { return static_cast<int>(m_data.size()); }

private:
  int m_top = -1;
  std::vector<T> m_data; // its size is the capacity
};

} // namespace meshcore
