#include "meshcore/containers/queue.h"
#include "meshcore/containers/stack.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace meshcore;

TEST(Stack, GrowsByDoublingAndKeepsOrder) {
  CStack<std::string> s;
  AbsStack<std::string>& abs = s;
  EXPECT_TRUE(abs.IsEmpty());
  EXPECT_EQ(abs.Top(), nullptr);
  for (int i = 0; i < 5; ++i)
    abs.Push(std::to_string(i));
  EXPECT_EQ(s.GetCapacity(), 5);
  abs.Push(*abs.Top()); // the argument lives in the block being replaced
  EXPECT_EQ(s.GetCapacity(), 10);
  std::string x;
  abs.Pop(x);
  EXPECT_EQ(x, "4");
  abs.Pop();
  EXPECT_EQ(*abs.Top(), "3");
  abs.MakeEmpty();
  abs.Pop(x); // popping an empty stack is harmless
  EXPECT_EQ(s.GetCapacity(), 10);
}

TEST(Queue, WrapsGrowsAndResets) {
  CQueue<int> q;
  AbsQueue<int>& abs = q;
  for (int v : {1, 2, 3})
    abs.Enqueue(v);
  abs.Dequeue();
  abs.Dequeue();
  abs.Enqueue(4);
  abs.Enqueue(5); // wraps to slot 1
  EXPECT_EQ(q.GetCapacity(), 3);
  EXPECT_EQ(q.GetFrontIndex(), 2);
  abs.Enqueue(6); // full: unwraps into a block of 6
  EXPECT_EQ(q.GetCapacity(), 6);
  EXPECT_EQ(q.GetFrontIndex(), 0);
  std::vector<int> out;
  while (!abs.IsEmpty()) {
    out.push_back(*abs.GetFront());
    abs.Dequeue();
  }
  EXPECT_EQ(out, (std::vector<int>{3, 4, 5, 6}));

  q.MakeEmpty(); // restarts at the front of the kept block
  q.Enqueue(9);
  EXPECT_EQ(q.GetFrontIndex(), 0);
  EXPECT_EQ(q.GetCapacity(), 6);
}

} // namespace
