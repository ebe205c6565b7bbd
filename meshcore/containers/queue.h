#pragma once
// Circular array-backed queue used by breadth-first traversals; starts with
// room for 3 and doubles.

#include <memory>
#include <utility>

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
  CQueue() : m_data(new T[m_capacity]) {}
  CQueue(const CQueue& other)
      : m_capacity(other.m_capacity), m_count(other.m_count), m_front(other.m_front),
        m_back(other.m_back), m_data(new T[other.m_capacity]) {
    for (int i = 0; i < m_capacity; ++i)
      m_data[i] = other.m_data[i];
  }
  CQueue& operator=(const CQueue& other) {
    if (this != &other) {
      CQueue copy(other);
      std::swap(m_capacity, copy.m_capacity);
      std::swap(m_count, copy.m_count);
      std::swap(m_front, copy.m_front);
      std::swap(m_back, copy.m_back);
      std::swap(m_data, copy.m_data);
    }
    return *this;
  }

  void Enqueue(const T& x) override {
    if (m_count == m_capacity) {
      T value = x; // x may live in the block being replaced
      // Unwrap into the new block: front moves to 0.
      std::unique_ptr<T[]> grown(new T[2 * static_cast<std::size_t>(m_capacity)]);
      for (int i = 0, j = m_front; i < m_count; ++i) {
        grown[i] = std::move(m_data[j]);
        if (++j == m_capacity)
          j = 0;
      }
      m_data = std::move(grown);
      m_capacity *= 2;
      m_front = 0;
      m_back = m_count - 1;
      m_data[++m_back] = std::move(value);
      ++m_count;
      return;
    }
    if (++m_back == m_capacity)
      m_back = 0;
    m_data[m_back] = x;
    ++m_count;
  }
  // Dequeuing an empty queue does nothing.
  void Dequeue() override {
    if (m_count == 0)
      return;
    --m_count;
    if (++m_front == m_capacity)
      m_front = 0;
  }
  // The slot at the front index; meaningful only when the queue is not empty.
  T* GetFront() override { return &m_data[m_front]; }
  int IsEmpty() const override { return m_count == 0; }
  int IsFull() const override { return 0; }
  void MakeEmpty() override {
    m_count = 0;
    m_front = 0;
    m_back = -1;
  }

  int GetCount() const { return m_count; }
  int GetCapacity() const { return m_capacity; }
  int GetFrontIndex() const { return m_front; }

private:
  int m_capacity = 3;
  int m_count = 0;
  int m_front = 0;
  int m_back = -1;
  std::unique_ptr<T[]> m_data;
};

} // namespace meshcore
