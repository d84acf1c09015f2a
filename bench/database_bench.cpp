// Benchmarks of the matching database, single thread.
//
// Workloads:
//   BM_Classify/<items>/<mode>  one classification of a query against 10,000, 100,000 and
//                               1,000,000 stored signatures, in mode 0 (tiles only) and
//                               mode 1 (tiles and means); items/s counts stored signatures
//                               scanned. Counters: resident bytes per stored signature after
//                               filling (rss_per_item) and after the first classification
//                               (rss_per_item_classified).
//   BM_AddSignature/<items>     adding one signature to a store already holding 0, 100,000
//                               or 1,000,000 signatures (no reserve): the cost should not
//                               depend on the size.
// Signatures are generated signature objects: tile histograms of a pseudo-random pattern.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include "database/CSignatureDatabase.h"
#include "feature/CFeatureObject.h"
#include "signature/CAudioSignMulti.h"
#include "signature/CSignDataMulti.h"
#include "signature/SMetaFrame.h"

namespace {

// A signature as the extractor builds it: four one-row float features and the "VER" frame;
// histogram-like tiles (each tile sums to 1), different for every seed.
CAudioSignMulti generate(uint32_t seed) {
  const std::pair<const char*, std::pair<size_t, size_t>> shapes[] = {
      {"EDG", {16, 6}}, {"HUE", {9, 16}}, {"SAT", {9, 4}}, {"VAL", {9, 4}}};
  uint32_t state = seed * 2654435761u + 1;
  auto* data = new CSignDataMulti();
  for (const auto& shape : shapes) {
    std::vector<float> v;
    for (size_t tile = 0; tile < shape.second.first; ++tile) {
      float sum = 0.0f;
      const size_t begin = v.size();
      for (size_t bin = 0; bin < shape.second.second; ++bin) {
        state = state * 1664525u + 1013904223u;
        v.push_back(static_cast<float>(state >> 8) + 1.0f);
        sum += v.back();
      }
      for (size_t i = begin; i < v.size(); ++i) v[i] /= sum;
    }
    auto* feature = new CFeatureObject<float>(shape.first, 2027);
    feature->AppendVector(BaseVector<float>(v.data(), static_cast<uint32_t>(v.size())));
    data->AddFeatureObject(feature);
  }
  data->addFrame(SMetaFrame(3, 2, "VER", "V6"));
  CAudioSignMulti signature;
  signature.adopt(data);
  return signature;
}

double residentBytes() {
  std::ifstream statm("/proc/self/statm");
  double pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

std::unique_ptr<CSignatureDatabase> makeDatabase() {
  auto db = std::make_unique<CSignatureDatabase>();
  std::vector<SFeatureGroupDef> defs;
  buildFeatureGroupDefs(defs);
  db->init(defs, 0);
  return db;
}

void fill(CSignatureDatabase& db, uint32_t count) {
  // A few distinct photos repeated keep the generator out of the measured memory.
  std::vector<CAudioSignMulti> photos;
  for (uint32_t i = 0; i < 64; ++i) photos.push_back(generate(i));
  for (uint32_t id = 1; id <= count; ++id) {
    db.addSignature(photos[id % photos.size()], id, 0, id);
  }
}

// One store at a time is kept, so the largest never lives beside another.
struct SStore {
  uint32_t items = 0;
  std::unique_ptr<CSignatureDatabase> db;
  double perItem = 0;
  double perItemClassified = 0;
};

SStore& storeOf(uint32_t items) {
  static SStore store;
  if (store.items != items || !store.db) {
    store.db.reset();
    const double before = residentBytes();
    store.db = makeDatabase();
    fill(*store.db, items);
    store.items = items;
    store.perItem = (residentBytes() - before) / items;
    store.db->classifyFloat(generate(12345), 1, nullptr);
    store.perItemClassified = (residentBytes() - before) / items;
  }
  return store;
}

void BM_Classify(benchmark::State& state) {
  SStore& store = storeOf(static_cast<uint32_t>(state.range(0)));
  const int mode = static_cast<int>(state.range(1));
  const CAudioSignMulti query = generate(777);
  for (auto _ : state) {
    benchmark::DoNotOptimize(store.db->classifyFloat(query, mode, nullptr).data());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.counters["rss_per_item"] = store.perItem;
  state.counters["rss_per_item_classified"] = store.perItemClassified;
}
BENCHMARK(BM_Classify)
    ->ArgNames({"items", "mode"})
    ->Args({10000, 0})
    ->Args({10000, 1})
    ->Args({100000, 0})
    ->Args({100000, 1})
    ->Args({1000000, 0})
    ->Args({1000000, 1})
    ->Unit(benchmark::kMillisecond);

void BM_AddSignature(benchmark::State& state) {
  auto db = makeDatabase();
  fill(*db, static_cast<uint32_t>(state.range(0)));
  const CAudioSignMulti photo = generate(99);
  uint32_t id = 0x80000000u;
  for (auto _ : state) db->addSignature(photo, ++id, 0, 0);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AddSignature)->ArgName("items")->Arg(0)->Arg(100000)->Arg(1000000)->Iterations(
    200000);

}  // namespace
