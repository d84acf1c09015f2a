// Benchmarks of the matching database through orvane.h, as a host uses it, single thread.
//
// Workloads:
//   BM_ReadBandwidth              the machine's limit: the sum of a 1 GiB float array, best
//                                 of several passes (bytes_per_second).
//   BM_Classify/<items>/<mode>/<maxResults>
//                                 one classify against 100,000 and 1,000,000 stored photos,
//                                 mode 0 (the same photo: tiles, threshold) and mode 1 (the
//                                 nearest: tiles and means, 10 results, or 0 for all ranked).
//                                 Counters: ms_per_query (median), first_query_ms (the first
//                                 query on a freshly filled store), bandwidth_fraction (the
//                                 time that reading every stored float the mode needs once
//                                 takes at the probe's rate, over ms_per_query; the same for
//                                 the first query), each also by processor time, which a
//                                 shared machine disturbs less; rss_per_item (resident bytes
//                                 per stored photo after filling) and rss_per_item_classified
//                                 (after the queries).
//   BM_AddSignature/<items>       adding one photo to a store already holding 0 or 1,000,000.
//   BM_CopyToFreshMemory          the floor of an add: copying 2,304 bytes into memory never
//                                 written before.
//
// The stored photos are signatures extracted from 3,000 generated photos of varied sizes,
// gradients and shapes, cycled: realistic, distinct vectors rather than a handful repeated.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

#include "orvane.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define BENCH_AVX2 1
#endif

namespace {

constexpr uint32_t kDistinctPhotos = 3000;
// Floats a scan reads per stored photo: the tiles in mode 0, whole vectors in mode 1.
constexpr double kModeBytes[] = {312 * 4, 576 * 4};

// A photo of a seed: a gradient between two colours, then rectangles and discs of other
// colours, at a size between 64 x 48 and 191 x 159.
std::vector<unsigned char> drawPhoto(uint32_t seed, int& width, int& height) {
  uint32_t state = seed * 2654435761u + 12345;
  const auto next = [&state](uint32_t range) {
    state = state * 1664525u + 1013904223u;
    return (state >> 8) % range;
  };
  width = 64 + static_cast<int>(next(128));
  height = 48 + static_cast<int>(next(112));
  unsigned char from[3], to[3];
  for (int c = 0; c < 3; ++c) {
    from[c] = static_cast<unsigned char>(next(256));
    to[c] = static_cast<unsigned char>(next(256));
  }
  const bool across = next(2) == 0;
  std::vector<unsigned char> bgr(static_cast<size_t>(width) * height * 3);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int along = across ? x * 255 / width : y * 255 / height;
      for (int c = 0; c < 3; ++c) {
        bgr[(static_cast<size_t>(y) * width + x) * 3 + c] =
            static_cast<unsigned char>((from[c] * (255 - along) + to[c] * along) / 255);
      }
    }
  }
  const uint32_t shapes = 2 + next(7);
  for (uint32_t s = 0; s < shapes; ++s) {
    const int cx = static_cast<int>(next(width)), cy = static_cast<int>(next(height));
    const int rx = 4 + static_cast<int>(next(width / 3)), ry = 4 + static_cast<int>(next(height / 3));
    const bool disc = next(2) == 0;
    const unsigned char colour[3] = {static_cast<unsigned char>(next(256)),
                                     static_cast<unsigned char>(next(256)),
                                     static_cast<unsigned char>(next(256))};
    for (int y = std::max(0, cy - ry); y < std::min(height, cy + ry); ++y) {
      for (int x = std::max(0, cx - rx); x < std::min(width, cx + rx); ++x) {
        const double dx = double(x - cx) / rx, dy = double(y - cy) / ry;
        if (disc && dx * dx + dy * dy > 1.0) continue;
        for (int c = 0; c < 3; ++c) bgr[(static_cast<size_t>(y) * width + x) * 3 + c] = colour[c];
      }
    }
  }
  return bgr;
}

const std::vector<CFIDContainer>& photos() {
  static const std::vector<CFIDContainer> all = [] {
    CFIDExtractor extractor(1);
    std::vector<CFIDContainer> signatures;
    signatures.reserve(kDistinctPhotos + 1);
    for (uint32_t seed = 0; seed <= kDistinctPhotos; ++seed) {
      int width = 0, height = 0;
      const std::vector<unsigned char> bgr = drawPhoto(seed, width, height);
      signatures.emplace_back(extractor.extract(bgr.data(), width, height, width * 3, 0, 0));
    }
    return signatures;
  }();
  return all;
}

// The query: a photo that is not stored.
const CFIDContainer& query() { return photos()[kDistinctPhotos]; }

double residentBytes() {
  std::ifstream statm("/proc/self/statm");
  double pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// Wall-clock seconds and this thread's processor seconds since a start: on a shared machine
// the second tells what the work itself costs.
struct SClock {
  std::chrono::steady_clock::time_point wall = std::chrono::steady_clock::now();
  double processor = processorSeconds();

  static double processorSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
  }
  double wallSeconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count();
  }
  double processorSecondsSince() const { return processorSeconds() - processor; }
};

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

// Sums a float array with independent accumulators, so that only reading limits it.
#if defined(BENCH_AVX2)
__attribute__((target("avx2"))) float sumAvx2(const float* data, size_t count) {
  __m256 acc[8];
  for (__m256& a : acc) a = _mm256_setzero_ps();
  for (size_t i = 0; i + 64 <= count; i += 64) {
    for (int k = 0; k < 8; ++k) acc[k] = _mm256_add_ps(acc[k], _mm256_loadu_ps(data + i + 8 * k));
  }
  for (int k = 1; k < 8; ++k) acc[0] = _mm256_add_ps(acc[0], acc[k]);
  float lanes[8];
  _mm256_storeu_ps(lanes, acc[0]);
  float sum = 0.0f;
  for (float lane : lanes) sum += lane;
  return sum;
}
#endif

float sumFloats(const float* data, size_t count) {
#if defined(BENCH_AVX2)
  if (__builtin_cpu_supports("avx2")) return sumAvx2(data, count);
#endif
  float acc[16] = {};
  for (size_t i = 0; i + 16 <= count; i += 16) {
    for (int k = 0; k < 16; ++k) acc[k] += data[i + k];
  }
  float sum = 0.0f;
  for (float a : acc) sum += a;
  return sum;
}

// Bytes per second that one thread reads, by the wall clock and by its processor time: the
// best of several passes over 1 GiB.
struct SBandwidth {
  double wall = 0.0;
  double processor = 0.0;
};

const SBandwidth& readBandwidth() {
  static const SBandwidth rate = [] {
    const size_t count = (size_t{1} << 30) / sizeof(float);
    std::unique_ptr<float[]> data(new float[count]);
    std::fill_n(data.get(), count, 1.0f);
    const double bytes = static_cast<double>(count * sizeof(float));
    SBandwidth best;
    for (int pass = 0; pass < 6; ++pass) {
      const SClock clock;
      benchmark::DoNotOptimize(sumFloats(data.get(), count));
      best.wall = std::max(best.wall, bytes / clock.wallSeconds());
      best.processor = std::max(best.processor, bytes / clock.processorSecondsSince());
    }
    return best;
  }();
  return rate;
}

void BM_ReadBandwidth(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(readBandwidth());
  state.counters["GB_per_second"] = readBandwidth().wall / 1e9;
  state.counters["GB_per_processor_second"] = readBandwidth().processor / 1e9;
}
BENCHMARK(BM_ReadBandwidth)->Iterations(1)->Unit(benchmark::kMillisecond);

std::unique_ptr<CFIDDatabase> filledDatabase(uint32_t items) {
  auto db = std::make_unique<CFIDDatabase>(1, 0);
  const std::vector<CFIDContainer>& all = photos();
  for (uint32_t id = 1; id <= items; ++id) db->addSignature(all[id % kDistinctPhotos], id, 0);
  return db;
}

// A freshly filled store per workload: its first query is measured as such.
struct SStore {
  std::vector<int64_t> args;
  std::unique_ptr<CFIDDatabase> db;
  double empty = 0;
  double perItem = 0;
  double firstQuery = 0;
  double firstQueryProcessor = 0;
};

SStore store;

SStore& storeFor(const benchmark::State& state) {
  const std::vector<int64_t> args = {state.range(0), state.range(1), state.range(2)};
  if (store.args != args || !store.db) {
    photos();
    store.db.reset();
    // Freed stores go back to the system, so the next one is measured from a clean start.
    malloc_trim(0);
    const auto items = static_cast<uint32_t>(args[0]);
    store.empty = residentBytes();
    store.db = filledDatabase(items);
    store.args = args;
    store.perItem = (residentBytes() - store.empty) / items;
    const SClock clock;
    store.db->classify(query(), static_cast<unsigned>(args[2]), static_cast<int>(args[1]));
    store.firstQuery = clock.wallSeconds();
    store.firstQueryProcessor = clock.processorSecondsSince();
  }
  return store;
}

void BM_Classify(benchmark::State& state) {
  SStore& store = storeFor(state);
  const double items = static_cast<double>(state.range(0));
  const int mode = static_cast<int>(state.range(1));
  const auto maxResults = static_cast<unsigned>(state.range(2));
  std::vector<double> wall, processor;
  for (auto _ : state) {
    const SClock clock;
    benchmark::DoNotOptimize(store.db->classify(query(), maxResults, mode).data());
    wall.push_back(clock.wallSeconds());
    processor.push_back(clock.processorSecondsSince());
  }
  // The time that reading the mode's floats of every stored photo once takes at the probe's
  // rate, by either clock.
  const double limit = kModeBytes[mode] * items / readBandwidth().wall;
  const double limitProcessor = kModeBytes[mode] * items / readBandwidth().processor;
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * items));
  state.counters["ms_per_query"] = median(wall) * 1e3;
  state.counters["processor_ms_per_query"] = median(processor) * 1e3;
  state.counters["first_query_ms"] = store.firstQuery * 1e3;
  state.counters["bandwidth_fraction"] = limit / median(wall);
  state.counters["bandwidth_fraction_processor"] = limitProcessor / median(processor);
  state.counters["first_bandwidth_fraction"] = limit / store.firstQuery;
  state.counters["first_bandwidth_fraction_processor"] =
      limitProcessor / store.firstQueryProcessor;
  state.counters["rss_per_item"] = store.perItem;
  state.counters["rss_per_item_classified"] = (residentBytes() - store.empty) / items;
}
BENCHMARK(BM_Classify)
    ->ArgNames({"items", "mode", "maxResults"})
    ->Args({100000, 0, 0})
    ->Args({100000, 1, 10})
    ->Args({1000000, 0, 0})
    ->Args({1000000, 1, 10})
    ->Args({1000000, 1, 0})
    ->MinTime(1.0)
    ->Unit(benchmark::kMillisecond);

constexpr int kAdds = 200000;

void BM_AddSignature(benchmark::State& state) {
  store.db.reset();
  std::unique_ptr<CFIDDatabase> db = filledDatabase(static_cast<uint32_t>(state.range(0)));
  const std::vector<CFIDContainer>& all = photos();
  int id = 0x40000000;
  for (auto _ : state) {
    db->addSignature(all[static_cast<uint32_t>(id) % kDistinctPhotos], id, 0);
    ++id;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AddSignature)->ArgName("items")->Arg(0)->Arg(1000000)->Iterations(kAdds)->Unit(
    benchmark::kMicrosecond);

// What an add cannot go below: copying a photo's 2,304 bytes of vectors into memory never
// written before, as often as BM_AddSignature adds. On a machine where first writes to
// memory are dear, this shows how much of an add they are.
void BM_CopyToFreshMemory(benchmark::State& state) {
  constexpr size_t kPhotoBytes = 576 * sizeof(float);
  store.db.reset();
  malloc_trim(0);
  const std::vector<unsigned char> photo(kPhotoBytes, 1);
  std::unique_ptr<unsigned char[]> fresh(new unsigned char[kPhotoBytes * kAdds]);
  size_t at = 0;
  for (auto _ : state) {
    std::memcpy(fresh.get() + at, photo.data(), kPhotoBytes);
    at += kPhotoBytes;
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CopyToFreshMemory)->Iterations(kAdds)->Unit(benchmark::kMicrosecond);

}  // namespace
