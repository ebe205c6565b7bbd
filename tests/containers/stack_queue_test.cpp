#include "meshcore/containers/queue.h"
#include "meshcore/containers/stack.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace meshcore;

TEST(Stack, KeepsOrderThroughGrowth) {
  CStack<std::string> s;
  AbsStack<std::string>& abs = s;
  EXPECT_TRUE(abs.IsEmpty());
  EXPECT_EQ(abs.Top(), nullptr);
  for (int i = 0; i < 5; ++i)
    abs.Push(std::to_string(i));
  abs.Push(*abs.Top()); // the argument lives in the block being replaced
  std::string x;
  abs.Pop(x);
  EXPECT_EQ(x, "4");
  abs.Pop();
  EXPECT_EQ(*abs.Top(), "3");
  abs.MakeEmpty();
  abs.Pop(x); // popping an empty stack is harmless
  EXPECT_TRUE(abs.IsEmpty());
}

TEST(Queue, WrapsGrowsAndResets) {
  CQueue<int> q;
  AbsQueue<int>& abs = q;
  for (int v : {1, 2, 3})
    abs.Enqueue(v);
  abs.Dequeue();
  abs.Dequeue();
  abs.Enqueue(4);
  abs.Enqueue(5); // wraps around the end of the block
  abs.Enqueue(6); // full: grows, keeping the order
  std::vector<int> out;
  while (!abs.IsEmpty()) {
    out.push_back(*abs.GetFront());
    abs.Dequeue();
  }
  EXPECT_EQ(out, (std::vector<int>{3, 4, 5, 6}));

  q.MakeEmpty();
  q.Enqueue(9);
  EXPECT_EQ(*q.GetFront(), 9);
}

} // namespace
