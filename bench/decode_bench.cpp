// Indexing against decoding, side by side on the same files in one run, with 1 and 2 workers
// (the argument), each worker on its own photo:
//   BM_PlainDecode  libvips alone: each file opened for one pass and decoded into memory
//                   (write_to_memory, a new buffer per photo);
//   BM_PlainDecodeReused  the same into one buffer per worker that each photo reuses, lines
//                   copied as libvips hands them over: the fastest way into memory that
//                   libvips offers, and the stricter baseline;
//   BM_IndexFull    orvane's index into a new library file: decode, extract, store;
//   BM_IndexFast    the same with --fast.
// The photos: 40 JPEGs of 4000x3000 at quality 92, made on first use from the photographs of
// Debian's mate-backgrounds package (enlarged, with a little noise so that they code like
// camera photos) in $TMPDIR/orvane-decode-bench. Items are photos: compare items_per_second.
// Run with --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true on a
// shared machine, so that a busy moment does not fall on one benchmark alone.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>
#include <vips/vips8>

#include "tools/orvane/CIndexer.h"
#include "tools/orvane/CPhotoLibrary.h"
#include "tools/orvane/PhotoDecoder.h"

namespace {

namespace fs = std::filesystem;

constexpr int kPhotos = 40;
constexpr const char* kSource = "/usr/share/backgrounds/mate/nature";

fs::path workFolder() {
  const char* tmp = std::getenv("TMPDIR");
  return fs::path(tmp != nullptr ? tmp : "/tmp") / "orvane-decode-bench";
}

// The photos' folder, made once.
const std::vector<std::string>& photos() {
  static const std::vector<std::string> paths = [] {
    static CDecoderSession session("decode_bench");
    const fs::path folder = workFolder() / "photos";
    fs::create_directories(folder);
    std::vector<std::string> sources;
    for (const auto& entry : fs::directory_iterator(kSource)) sources.push_back(entry.path());
    std::sort(sources.begin(), sources.end());
    if (sources.empty()) {
      std::fprintf(stderr, "decode_bench: no photos in %s (apt-get install mate-backgrounds)\n",
                   kSource);
      std::exit(1);
    }
    std::vector<std::string> made;
    for (int i = 0; i < kPhotos; ++i) {
      const fs::path path = folder / ("photo-" + std::to_string(100 + i).substr(1) + ".jpg");
      made.push_back(path);
      if (fs::exists(path)) continue;
      // Each source in turn, mirrored on the second round and darkened a little on the
      // third, so that no two files are the same.
      vips::VImage image = vips::VImage::thumbnail(
          sources[i % sources.size()].c_str(), 4000,
          vips::VImage::option()->set("height", 3000)->set("size", VIPS_SIZE_FORCE));
      if ((i / sources.size()) % 2 == 1) image = image.flip(VIPS_DIRECTION_HORIZONTAL);
      image = image * (1.0 - 0.05 * static_cast<double>(i / sources.size())) +
              vips::VImage::gaussnoise(4000, 3000, vips::VImage::option()->set("sigma", 3.0));
      image.cast(VIPS_FORMAT_UCHAR)
          .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB))
          .write_to_file((path.string() + "[Q=92]").c_str());
    }
    return made;
  }();
  return paths;
}

double processSeconds() {
  struct rusage usage {};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
         1e-6 * (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

// Counts the process's processor time per photo over the life of the object.
class CpuPerPhoto {
 public:
  explicit CpuPerPhoto(benchmark::State& state) : state(state), start(processSeconds()) {}
  ~CpuPerPhoto() {
    state.counters["cpu_ms_per_photo"] =
        1000 * (processSeconds() - start) / (state.iterations() * kPhotos);
    state.SetItemsProcessed(state.iterations() * kPhotos);
  }

 private:
  benchmark::State& state;
  double start;
};

// Runs work(path) over every photo on the given number of threads, each taking the next.
template <typename Work>
void onWorkers(int workers, const Work& work) {
  const std::vector<std::string>& paths = photos();
  std::atomic<std::size_t> next{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < workers; ++i) {
    threads.emplace_back([&] {
      for (std::size_t job = next++; job < paths.size(); job = next++) work(paths[job]);
      vips_thread_shutdown();
    });
  }
  for (std::thread& thread : threads) thread.join();
}

void BM_PlainDecode(benchmark::State& state) {
  photos();
  CpuPerPhoto cpu(state);
  for (auto _ : state) {
    onWorkers(static_cast<int>(state.range(0)), [](const std::string& path) {
      const vips::VImage image = vips::VImage::new_from_file(
          path.c_str(), vips::VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
      std::size_t size = 0;
      void* pixels = image.write_to_memory(&size);
      benchmark::DoNotOptimize(pixels);
      g_free(pixels);
    });
  }
}

// Lines copied as they come, into the worker's buffer.
int copyLines(VipsRegion* region, VipsRect* area, void* target) {
  auto& buffer = *static_cast<std::vector<unsigned char>*>(target);
  const std::size_t line = VIPS_IMAGE_SIZEOF_LINE(region->im);
  for (int y = area->top; y < VIPS_RECT_BOTTOM(area); ++y) {
    std::memcpy(buffer.data() + y * line, VIPS_REGION_ADDR(region, area->left, y), line);
  }
  return 0;
}

void BM_PlainDecodeReused(benchmark::State& state) {
  photos();
  CpuPerPhoto cpu(state);
  for (auto _ : state) {
    onWorkers(static_cast<int>(state.range(0)), [](const std::string& path) {
      thread_local std::vector<unsigned char> buffer;
      const vips::VImage image = vips::VImage::new_from_file(
          path.c_str(), vips::VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
      buffer.resize(VIPS_IMAGE_SIZEOF_IMAGE(image.get_image()));
      if (vips_sink_disc(image.get_image(), copyLines, &buffer) != 0) std::abort();
      benchmark::DoNotOptimize(buffer.data());
    });
  }
}

void indexAll(benchmark::State& state, DecodeMode mode) {
  photos();
  const std::string file = (workFolder() / "bench.orvane").string();
  CpuPerPhoto cpu(state);
  for (auto _ : state) {
    state.PauseTiming();
    for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(file + suffix);
    state.ResumeTiming();
    CPhotoLibrary library(file, CPhotoLibrary::Access::kCreate);
    const SIndexSummary summary = CIndexer(library, static_cast<unsigned>(state.range(0)), mode)
                                      .run({(workFolder() / "photos").string()}, false);
    if (summary.added != kPhotos) state.SkipWithError("not every photo was indexed");
  }
}

void BM_IndexFull(benchmark::State& state) { indexAll(state, DecodeMode::kFull); }
void BM_IndexFast(benchmark::State& state) { indexAll(state, DecodeMode::kFast); }

#define DECODE_BENCH(name) \
  BENCHMARK(name)->Arg(1)->Arg(2)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond)
DECODE_BENCH(BM_PlainDecode);
DECODE_BENCH(BM_PlainDecodeReused);
DECODE_BENCH(BM_IndexFull);
DECODE_BENCH(BM_IndexFast);

}  // namespace
