// Saving and loading a whole signature store.
//
// Workloads (stored photos: 10,000 and 100,000; 5,380 stream bytes each):
//   BM_SaveDatabase  saveToStream into a stream that only counts the bytes
//   BM_LoadDatabase  loadFromStream from an in-memory stream into a store built alike
// bytes_per_second is the stream's bytes over the processor time of one call. Counters:
// stream_bytes; peak_extra_bytes, the most memory resident during the call beyond what was
// resident before it (the loaded store's own vectors included for a load: store_bytes says
// how much of it they are); peak_extra_per_stream, that peak over stream_bytes.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdint>
#include <fstream>
#include <istream>
#include <ostream>
#include <random>
#include <streambuf>
#include <string>
#include <vector>

#include "database/CSignatureDatabase.h"
#include "database/SFeatureGroupDef.h"

namespace {

// Resident bytes of the process (VmRSS), or the most resident since the last resetPeak()
// (VmHWM): what a call really holds, whatever allocates it.
double statusBytes(const std::string& field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, field.size() + 1, field + ":") == 0) {
      return std::stod(line.substr(field.size() + 1)) * 1024.0;
    }
  }
  return 0.0;
}

// Freed memory goes back to the system first, so that no call is measured as reusing it.
double residentBytes() {
  malloc_trim(0);
  return statusBytes("VmRSS");
}
double peakResidentBytes() { return statusBytes("VmHWM"); }
void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

}  // namespace

namespace {

// Discards what is written and counts it.
class CountingBuf : public std::streambuf {
 public:
  std::size_t count = 0;

 protected:
  std::streamsize xsputn(const char*, std::streamsize n) override {
    count += static_cast<std::size_t>(n);
    return n;
  }
  int_type overflow(int_type c) override {
    ++count;
    return c;
  }
};

// Reads a block of memory without copying it; it can tell its size, as a file can.
class MemoryBuf : public std::streambuf {
 public:
  MemoryBuf(char* begin, char* end) { setg(begin, begin, end); }

 protected:
  pos_type seekoff(off_type off, std::ios_base::seekdir dir, std::ios_base::openmode) override {
    char* base = dir == std::ios_base::beg ? eback() : dir == std::ios_base::cur ? gptr() : egptr();
    if (base + off < eback() || base + off > egptr()) return pos_type(off_type(-1));
    setg(eback(), base + off, egptr());
    return pos_type(gptr() - eback());
  }
  pos_type seekpos(pos_type pos, std::ios_base::openmode mode) override {
    return seekoff(off_type(pos), std::ios_base::beg, mode);
  }
};

constexpr uint32_t kTileCounts[] = {96, 144, 36, 36};
const char* const kFeatureNames[] = {"EDG", "HUE", "SAT", "VAL"};

void build(CSignatureDatabase& db, uint32_t photos) {
  std::vector<SFeatureGroupDef> defs;
  buildFeatureGroupDefs(defs);
  db.init(defs, photos);
  std::mt19937 random(7);
  std::uniform_real_distribution<float> value(0.0f, 1.0f);
  std::vector<float> tiles[4];
  for (uint32_t id = 1; id <= photos; ++id) {
    for (int f = 0; f < 4; ++f) {
      tiles[f].resize(kTileCounts[f]);
      for (float& t : tiles[f]) t = value(random);
    }
    db.addFeatures(
        "V6",
        [&](const std::string& name, uint32_t) -> const float* {
          for (int f = 0; f < 4; ++f) {
            if (name == kFeatureNames[f]) return tiles[f].data();
          }
          return nullptr;
        },
        id, 0, 0);
  }
}

void BM_SaveDatabase(benchmark::State& state) {
  const auto photos = static_cast<uint32_t>(state.range(0));
  CSignatureDatabase db;
  build(db, photos);
  std::size_t streamBytes = 0;
  double peakExtra = 0;
  for (auto _ : state) {
    CountingBuf sink;
    std::ostream out(&sink);
    const double before = residentBytes();
    resetPeak();
    benchmark::DoNotOptimize(db.saveToStream(out));
    peakExtra = std::max(peakExtra, peakResidentBytes() - before);
    streamBytes = sink.count;
  }
  state.SetItemsProcessed(state.iterations() * photos);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * streamBytes));
  state.counters["stream_bytes"] = static_cast<double>(streamBytes);
  state.counters["peak_extra_bytes"] = peakExtra;
  state.counters["peak_extra_per_stream"] = peakExtra / static_cast<double>(streamBytes);
}

void BM_LoadDatabase(benchmark::State& state) {
  const auto photos = static_cast<uint32_t>(state.range(0));
  std::string stream;
  double storeBytes = 0;
  {
    CSignatureDatabase source;
    const double empty = residentBytes();
    build(source, photos);
    storeBytes = residentBytes() - empty;
    CountingBuf sink;
    std::ostream counter(&sink);
    source.saveToStream(counter);
    stream.resize(sink.count);
    // Written once more into memory, now that the size is known.
    struct StringBuf : std::streambuf {
      explicit StringBuf(std::string& s) { setp(s.data(), s.data() + s.size()); }
    } into(stream);
    std::ostream out(&into);
    source.saveToStream(out);
  }
  std::vector<SFeatureGroupDef> defs;
  buildFeatureGroupDefs(defs);
  double peakExtra = 0;
  for (auto _ : state) {
    state.PauseTiming();
    {
      CSignatureDatabase db;
      db.init(defs, 0);
      MemoryBuf source(stream.data(), stream.data() + stream.size());
      std::istream in(&source);
      const double before = residentBytes();
      resetPeak();
      state.ResumeTiming();
      benchmark::DoNotOptimize(db.loadFromStream(in));
      state.PauseTiming();
      peakExtra = std::max(peakExtra, peakResidentBytes() - before);
      if (db.itemCount() != photos) state.SkipWithError("load lost items");
    }
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * photos);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * stream.size()));
  state.counters["stream_bytes"] = static_cast<double>(stream.size());
  state.counters["store_bytes"] = storeBytes;
  state.counters["peak_extra_bytes"] = peakExtra;
  state.counters["peak_extra_per_stream"] = peakExtra / static_cast<double>(stream.size());
}

BENCHMARK(BM_SaveDatabase)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadDatabase)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace
