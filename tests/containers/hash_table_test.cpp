#include "meshcore/containers/hash_ex_map.h"
#include "meshcore/containers/hash_map.h"
#include "meshcore/containers/hash_table.h"
#include "meshcore/containers/next_prime.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace meshcore;

// An element compared on its key part only, hashed through the ADL hook.
struct KeyValue {
  int key = 0;
  int value = 0;
  bool operator==(const KeyValue& o) const { return key == o.key; }
};
std::uint32_t HashKey(const KeyValue& kv) {
  return meshcore::HashKey(kv.key);
}

template <class T> std::vector<T> InSlotOrder(const CHashTable<T>& t) {
  std::vector<T> out;
  T x{};
  for (int pos = t.GetFirst(); pos >= 0;) {
    t.GetNext(pos, x);
    out.push_back(x);
  }
  return out;
}

TEST(NextPrime, OddNumbersWithoutOddDivisors) {
  EXPECT_EQ(NextPrime(0), 1u);
  EXPECT_EQ(NextPrime(4294967290u), 4294967291u);
  EXPECT_EQ(NextPrime(4294967295u), 4294967291u); // no 32-bit prime above: no wrap to 0
}

TEST(HashKey, ExactValues) {
  EXPECT_EQ(meshcore::HashKey(3), 48u);
  EXPECT_EQ(meshcore::HashKey(-1), 0xFFFFFFF0u);
  EXPECT_EQ(meshcore::HashKey(0x10000001u), 0x10u);
  EXPECT_EQ(meshcore::HashKey(std::string("ab")), 3139u);
  EXPECT_EQ(meshcore::HashKey(std::string("Ab")), 3171u);
  EXPECT_EQ(meshcore::HashKey(std::string("\xc3\xa9")),
            4294964554u); // bytes above 0x7F are negative
  auto* p = reinterpret_cast<int*>(std::uintptr_t{0x123456789});
  EXPECT_EQ(meshcore::HashKey(p), 0x23456789u << 4);
}

TEST(HashTable, GrowthPointsAndCounterFollowInsertions) {
  CHashTable<unsigned> t;
  std::vector<int> sizes;
  for (unsigned k = 0; k < 12; ++k) {
    EXPECT_EQ(t.Insert(k * 7), 1);
    sizes.push_back(t.GetTableSize());
  }
  EXPECT_EQ(sizes, (std::vector<int>{5, 11, 11, 11, 23, 23, 23, 23, 23, 23, 47, 47}));
  EXPECT_EQ(t.Insert(14), 0);
  for (unsigned k = 0; k < 12; ++k)
    EXPECT_TRUE(t.IsFound(k * 7));
  t.MakeEmpty(); // keeps the grown table
  EXPECT_EQ(t.GetTableSize(), 47);
  EXPECT_FALSE(t.IsFound(14));
}

TEST(HashTable, LazyDeletionKeepsCounterAndReusesSlot) {
  CHashTable<int> t;
  EXPECT_EQ(t.Insert(7), 1);
  EXPECT_EQ(t.Remove(7), 1);
  EXPECT_FALSE(t.IsEmpty()); // the counter still remembers the insertion
  // Re-inserting lands on the deleted slot and counts again: second insertion, so
  // the table grows as after two distinct ones.
  EXPECT_EQ(t.Insert(7), 1);
  EXPECT_EQ(t.GetTableSize(), 11);
  EXPECT_EQ(t.GetCount(), 1);

  // Removing a key that others probed past must not hide them.
  CHashTable<int> c;
  c.Insert(0);
  c.Insert(11); // after the first growth to 11: both hash to slot 0
  c.Insert(22);
  EXPECT_EQ(c.Remove(0), 1);
  EXPECT_TRUE(c.IsFound(11));
  EXPECT_TRUE(c.IsFound(22));
  EXPECT_EQ(c.Insert(22), 0);
  EXPECT_EQ(InSlotOrder(c), (std::vector<int>{11, 22}));
}

TEST(HashTable, CollisionsProbeQuadraticallyAndRehashInSlotOrder) {
  // Size 5: 11 hashes to slot 1 and 0 to slot 0; the growth to 11 re-inserts in
  // slot order (0 first), so 0 takes slot 0 and 11 probes on to slot 1.
  CHashTable<int> t;
  t.Insert(11);
  t.Insert(0);
  ASSERT_EQ(t.GetTableSize(), 11);
  EXPECT_EQ(InSlotOrder(t), (std::vector<int>{0, 11}));
  // 22 also hashes to 0: probes 0, 1, then 1 + 3 = 4. 33: 4 + 5 = 9.
  t.Insert(22);
  t.Insert(33);
  EXPECT_EQ(InSlotOrder(t), (std::vector<int>{0, 11, 22, 33}));
  // The fifth insertion since the growth rehashes to 23, re-inserting by old slot
  // (0, 11, 22, 44 at 9 + 7 - 11 = 5, 33), none colliding at size 23.
  t.Insert(44);
  ASSERT_EQ(t.GetTableSize(), 23);
  EXPECT_EQ(InSlotOrder(t), (std::vector<int>{0, 22, 44, 11, 33}));
  // Multiples of 23 all hash to slot 0: they take 1, 4, 9, 16, then 25 - 23 = 2.
  for (int k : {23, 46, 69, 92, 115})
    EXPECT_EQ(t.Insert(k), 1);
  EXPECT_EQ(t.GetTableSize(), 23);
  EXPECT_EQ(InSlotOrder(t), (std::vector<int>{0, 23, 115, 46, 22, 69, 44, 11, 92, 33}));
}

TEST(HashTable, CopyAndReplace) {
  CHashTable<int> a;
  a.SetDefaultSize(17);
  for (int k = 0; k < 6; ++k)
    a.Insert(k);
  CHashTable<int> b;
  b = a;
  EXPECT_EQ(b.GetTableSize(), a.GetTableSize());
  EXPECT_EQ(InSlotOrder(b), InSlotOrder(a));
  // The copied counter decides the next growth exactly as in the source.
  a.Insert(100);
  b.Insert(100);
  EXPECT_EQ(b.GetTableSize(), a.GetTableSize());

  CHashTable<KeyValue> kv;
  EXPECT_EQ(kv.Insert({1, 10}), 1);
  EXPECT_EQ(kv.Insert({1, 20}), 0);
  KeyValue probe{1, 0};
  ASSERT_EQ(kv.Find(probe), 1);
  EXPECT_EQ(probe.value, 10);
  EXPECT_EQ(kv.InsertAndReplace({1, 30}), 0);
  probe = {1, 0};
  kv.Find(probe);
  EXPECT_EQ(probe.value, 30);
}

TEST(HashMap, SetAtLookupGrowthAndRemoval) {
  CHashMap<int, int, std::string> m;
  for (int k = 0; k < 22; ++k)
    EXPECT_EQ(m.SetAt(k, std::to_string(k)), 1);
  EXPECT_EQ(m.GetTableSize(), 47);
  EXPECT_EQ(m.SetAt(22, "22"), 1);
  EXPECT_EQ(m.GetTableSize(), 97);
  EXPECT_EQ(m.SetAt(5, "five"), 0);
  std::string v;
  ASSERT_EQ(m.Lookup(5, v), 1);
  EXPECT_EQ(v, "five");
  EXPECT_EQ(m.RemoveKey(5), 1);
  EXPECT_EQ(m.Lookup(5, v), 0);
}

TEST(HashExMap, OwnsItsSets) {
  CHashExMap<int, int&, int> m;
  int a = 1, b = 2;
  EXPECT_EQ(m.Add(a, 10), 1);
  EXPECT_EQ(m.Add(a, 10), 0);
  EXPECT_EQ(m.Add(a, 11), 1);
  EXPECT_EQ(m.Add(b, 20), 1);
  ASSERT_NE(m.GetSet(a), nullptr);
  EXPECT_EQ(m.GetSet(a)->GetCount(), 2);
  CHashTable<int>* set = nullptr;
  ASSERT_EQ(m.Lookup(b, set), 1);
  EXPECT_TRUE(set->IsFound(20));
  EXPECT_EQ(m.RemoveKey(b), 1);
  EXPECT_EQ(m.GetSet(b), nullptr);
  EXPECT_EQ(m.Add(b, 21), 1); // a fresh set for the revived key
  EXPECT_EQ(m.GetSet(b)->GetCount(), 1);
  m.SetAt(a, new CHashTable<int>); // the old set is released
  // The remaining sets go with the map; the sanitizer build checks for leaks.
}

} // namespace
