#include "meshcore/containers/element_array.h"
#include "meshcore/containers/hash_table.h"
#include "meshcore/containers/int_array_id.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <new>

namespace {

using namespace meshcore;

struct Record40 {
  unsigned flags;
  float xyz[3];
  double uv[2];
  void* extra;
};
static_assert(sizeof(Record40) == 40);

class CRecord40Array : public CElementArray {
public:
  CRecord40Array() : CElementArray(sizeof(Record40)) {}
  ~CRecord40Array() override { RemoveAll(); }
  void ConstructElement(void* p) override { new (p) Record40{}; }
  void DestructElement(void*) override {}
  void CopyElement(void* dst, void* src) override { std::memcpy(dst, src, sizeof(Record40)); }
  void SerializeElement(CArchive&, void*) override {}
};

void BM_ElementArrayAdd(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  Record40 r{};
  for (auto _ : state) {
    CRecord40Array a;
    for (int i = 0; i < n; ++i) {
      r.flags = static_cast<unsigned>(i);
      a.Add(&r);
    }
    benchmark::DoNotOptimize(a.GetData());
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_ElementArrayAdd)->Arg(10'000'000)->Unit(benchmark::kMillisecond);

// A face list's index arrays: one CIntArrayID per face inside element records.
class CFaceIndexArray : public CElementArray {
public:
  CFaceIndexArray() : CElementArray(sizeof(CIntArrayID)) {}
  ~CFaceIndexArray() override { RemoveAll(); }
  void ConstructElement(void* p) override { new (p) CIntArrayID; }
  void DestructElement(void* p) override { static_cast<CIntArrayID*>(p)->~CIntArrayID(); }
  void CopyElement(void* dst, void* src) override {
    *static_cast<CIntArrayID*>(dst) = *static_cast<CIntArrayID*>(src);
  }
  void SerializeElement(CArchive&, void*) override {}
};

void BM_MillionQuadFaces(benchmark::State& state) {
  for (auto _ : state) {
    CFaceIndexArray faces;
    faces.SetSize(1'000'000, 0);
    for (int f = 0; f < 1'000'000; ++f) {
      auto* idx = static_cast<CIntArrayID*>(faces[f]);
      idx->Init(4);
      for (int k = 0; k < 4; ++k)
        idx->Add(f + k);
    }
    benchmark::DoNotOptimize(faces.GetData());
  }
  state.SetItemsProcessed(state.iterations() * 1'000'000);
}
BENCHMARK(BM_MillionQuadFaces)->Unit(benchmark::kMillisecond);

void BM_HashTableInsertFind(benchmark::State& state) {
  const unsigned n = static_cast<unsigned>(state.range(0));
  for (auto _ : state) {
    CHashTable<unsigned> t;
    for (unsigned k = 0; k < n; ++k)
      t.Insert(k * 2654435761u);
    int found = 0;
    for (unsigned k = 0; k < n; ++k)
      found += t.IsFound(k * 2654435761u);
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations() * n * 2);
}
BENCHMARK(BM_HashTableInsertFind)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

} // namespace
