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
// Signatures are generated: tile histograms of a fixed pseudo-random pattern per id.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include "database/CSignatureDatabase.h"

namespace {

struct SGenerated {
  std::map<std::string, std::vector<float>> features;
  CSignatureDatabase::FeatureTiles tiles() const {
    return [this](const std::string& name, uint32_t) { return features.at(name).data(); };
  }
};

// Histogram-like tiles: each tile sums to 1, different for every seed.
SGenerated generate(uint32_t seed) {
  SGenerated g;
  const std::pair<const char*, std::pair<size_t, size_t>> shapes[] = {
      {"EDG", {16, 6}}, {"HUE", {9, 16}}, {"SAT", {9, 4}}, {"VAL", {9, 4}}};
  uint32_t state = seed * 2654435761u + 1;
  for (const auto& shape : shapes) {
    std::vector<float>& v = g.features[shape.first];
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
  }
  return g;
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
  std::vector<SGenerated> photos;
  for (uint32_t i = 0; i < 64; ++i) photos.push_back(generate(i));
  for (uint32_t id = 1; id <= count; ++id) {
    db.addFeatures("V6", photos[id % photos.size()].tiles(), id, 0, id);
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
    store.db->classifyFeatures("V6", generate(12345).tiles(), 1, nullptr);
    store.perItemClassified = (residentBytes() - before) / items;
  }
  return store;
}

void BM_Classify(benchmark::State& state) {
  SStore& store = storeOf(static_cast<uint32_t>(state.range(0)));
  const int mode = static_cast<int>(state.range(1));
  const SGenerated query = generate(777);
  const CSignatureDatabase::FeatureTiles tiles = query.tiles();
  for (auto _ : state) {
    benchmark::DoNotOptimize(store.db->classifyFeatures("V6", tiles, mode, nullptr).data());
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
  const SGenerated photo = generate(99);
  const CSignatureDatabase::FeatureTiles tiles = photo.tiles();
  uint32_t id = 0x80000000u;
  for (auto _ : state) db->addFeatures("V6", tiles, ++id, 0, 0);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AddSignature)->ArgName("items")->Arg(0)->Arg(100000)->Arg(1000000)->Iterations(
    200000);

}  // namespace
