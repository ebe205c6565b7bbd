#pragma once
// Circular array-backed queue used by breadth-first traversals; starts with
// room for 3 and doubles.

#include <utility>
#include <vector>

namespace meshcore {

template <class T> class AbsQueue {
public:
  virtual ~AbsQueue() = default;
  virtual void Enqueue(const T& x) = 0;
  virtual void Dequeue() = 0;
  virtual T* GetFront() = 0;
  virtual int IsEmpty() const = 0;
  virtual int IsFull() const = 0;
  virtual void MakeEmpty() = 0;
};

template <class T> class CQueue : public AbsQueue<T> {
public:
  CQueue() : m_data(3) {}

  void Enqueue(const T& x) override {
    const std::size_t capacity = m_data.size();
    if (static_cast<std::size_t>(m_count) == capacity) {
      T value = x; // x may live in the block being replaced
      // Unwrap into the new block: front moves to 0.
      std::vector<T> grown(2 * capacity);
      std::size_t j = static_cast<std::size_t>(m_front);
      for (std::size_t i = 0; i < capacity; ++i) {
        grown[i] = std::move(m_data[j]);
        if (++j == capacity)
          j = 0;
      }
      grown[capacity] = std::move(value);
      m_data = std::move(grown);
      m_front = 0;
      m_back = m_count;
    } else {
      if (static_cast<std::size_t>(++m_back) == capacity)
        m_back = 0;
      m_data[static_cast<std::size_t>(m_back)] = x;
    }
    ++m_count;
  }
  // Underflow is ignored: dequeuing an empty queue does nothing.
  void Dequeue() override {
    if (m_count == 0)
      return;
    --m_count;
    if (static_cast<std::size_t>(++m_front) == m_data.size())
      m_front = 0;
  }
  // The slot at the front index; meaningful only when the queue is not empty.
  T* GetFront() override { return &m_data[static_cast<std::size_t>(m_front)]; }
  int IsEmpty() const override { return m_count == 0; }
  int IsFull() const override { return 0; }
  void MakeEmpty() override {
    m_count = 0;
    m_front = 0;
    m_back = -1;
  }

  int GetCount() const { return m_count; }
  int GetCapacity() const { return static_cast<int>(m_data.size()); }
  int GetFrontIndex() const { return m_front; }

private:
  int m_count = 0;
  int m_front = 0;
  int m_back = -1;
  std::vector<T> m_data; // its size is the capacity
};

} // namespace meshcore
