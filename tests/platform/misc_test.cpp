#include "meshcore/platform/ordered_map.h"
#include "meshcore/platform/thread_id.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace meshcore {

TEST(ThreadId, NonZeroStableAndDistinct) {
  const std::uint32_t mine = GetCurrentThreadId32();
  EXPECT_NE(mine, 0u);
  EXPECT_EQ(GetCurrentThreadId32(), mine);
  EXPECT_EQ(GetThreadId32(std::this_thread::get_id()), mine);

  std::vector<std::uint32_t> seen(8);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < seen.size(); ++i)
    threads.emplace_back([&seen, i] {
      seen[i] = GetCurrentThreadId32();
      EXPECT_EQ(GetCurrentThreadId32(), seen[i]);
    });
  std::vector<std::uint32_t> fromOutside;
  for (auto& t : threads)
    fromOutside.push_back(GetThreadId32(t.get_id()));
  for (auto& t : threads)
    t.join();
  EXPECT_EQ(seen, fromOutside);
  std::set<std::uint32_t> distinct(seen.begin(), seen.end());
  distinct.insert(mine);
  EXPECT_EQ(distinct.size(), seen.size() + 1);
  EXPECT_EQ(distinct.count(0u), 0u);
}

TEST(OrderedMap, IteratesInInsertionOrder) {
  COrderedMap<std::uint32_t, int> m;
  for (std::uint32_t k : {50u, 3u, 1000u, 7u})
    m[k] = static_cast<int>(k) * 2;
  EXPECT_FALSE(m.insert(3u, 99).second); // existing key keeps value and place
  EXPECT_EQ(m.erase(1000u), 1u);
  EXPECT_EQ(m.erase(1000u), 0u);
  m.insert(1000u, 1); // re-inserted at the end
  std::vector<std::uint32_t> keys;
  for (const auto& [k, v] : m)
    keys.push_back(k);
  EXPECT_EQ(keys, (std::vector<std::uint32_t>{50, 3, 7, 1000}));
  EXPECT_EQ(m.at(3u), 6);

  // Erasing while iterating, and heavy erasure that compacts, keep the order.
  for (auto it = m.begin(); it != m.end();)
    it = it->first == 3u ? m.erase(it) : std::next(it);
  COrderedMap<std::pair<int, int>, int> edges;
  for (int i = 0; i < 200; ++i)
    edges[{i, i + 1}] = i;
  for (int i = 0; i < 200; ++i)
    if (i % 10)
      edges.erase({i, i + 1});
  edges[{-1, -2}] = -1; // triggers compaction
  std::vector<int> values;
  for (const auto& e : edges)
    values.push_back(e.second);
  std::vector<int> expected;
  for (int i = 0; i < 200; i += 10)
    expected.push_back(i);
  expected.push_back(-1);
  EXPECT_EQ(values, expected);
  EXPECT_TRUE(edges.contains({190, 191}));
}

} // namespace meshcore
