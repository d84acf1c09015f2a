// Benchmarks of the image analysis, single thread, on in-memory BGR photos of 640x480,
// 1920x1080, 4000x3000 and a flat 300x40 (whose edge image is enlarged to 70x70), each a fixed
// pseudo-random texture with smooth colour gradients:
//   BM_Extract         the whole run: fit into the 256x256 box, gray and HSV images, the edge
//                      and colour histograms, the rows of the signature;
//   BM_Extract_<column> the same with each column forced (generic, and every vectorised one
//                      the processor can run); BM_Extract runs the one selectProcessor chose;
//   BM_FitIntoBox      the fit (the cubic resize into the box) alone;
//   BM_Analysis        everything after the fit (CDescriptorExtractor::run on the fitted image);
//   BM_BlockMeanHash   OpenCV img_hash BlockMeanHash, mode 0, on the same pixels, when the
//                      build found OpenCV.
// Items are photos; the time per photo is the reported time per iteration. At the end the
// program prints, per photo size, the CPU time of BM_Extract (and of each forced column) over
// that of BM_BlockMeanHash from this same run: below 1 means extract is faster.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "imaging/CDescriptorExtractor.h"
#include "imaging/CExtractorEngine.h"
#include "imaging/CImageBuffer.h"
#include "imaging/CPreprocessor.h"
#include "imaging/ImagingOperations.h"

#ifdef ORVANE_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/img_hash.hpp>
#endif

namespace {

std::vector<unsigned char> makePhoto(int width, int height) {
  std::vector<unsigned char> pixels(static_cast<size_t>(width) * height * 3);
  uint32_t state = 12345;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      state = state * 1664525u + 1013904223u;
      const int noise = static_cast<int>(state >> 28);
      unsigned char* p = &pixels[(static_cast<size_t>(y) * width + x) * 3];
      p[0] = static_cast<unsigned char>((x * 255 / width + noise) & 255);
      p[1] = static_cast<unsigned char>((y * 255 / height + noise) & 255);
      p[2] = static_cast<unsigned char>(((x + y) / 7 + noise * 3) & 255);
    }
  }
  return pixels;
}

// An engine ready for photos of any shape: a flat photo needs the edge image that a first
// photo of ordinary shape leaves behind.
void prime(CExtractorEngine& engine) {
  const std::vector<unsigned char> square = makePhoto(256, 256);
  engine.run(square.data(), 256, 256, 256 * 3);
}

void runExtract(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  const int height = static_cast<int>(state.range(1));
  const std::vector<unsigned char> photo = makePhoto(width, height);
  CExtractorEngine engine(256, 256);
  prime(engine);
  for (auto _ : state) {
    engine.run(photo.data(), width, height, width * 3);
    benchmark::DoNotOptimize(engine.buffers);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_Extract(benchmark::State& state) { runExtract(state); }

// BM_Extract with `column` in the slots, which are then given back to selectProcessor's choice.
void extractWith(benchmark::State& state, const SImagingColumn* column) {
  selectProcessor();
  useColumn(*column);
  runExtract(state);
  const std::vector<const SImagingColumn*> vector = vectorColumns();
  useColumn(vector.empty() ? kGenericColumn : *vector.front());
}

void BM_FitIntoBox(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  const int height = static_cast<int>(state.range(1));
  std::vector<unsigned char> photo = makePhoto(width, height);
  CExtractorEngine engine(256, 256);
  CImageBuffer input;
  input.attach(height, width, 3, 8, 0, width * 3, photo.data(), width, height, -1, -1, -1, -1, 2);
  for (auto _ : state) {
    engine.preprocessor->fitIntoBox(input, *engine.working);
    benchmark::DoNotOptimize(engine.working->data);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_Analysis(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  const int height = static_cast<int>(state.range(1));
  const std::vector<unsigned char> photo = makePhoto(width, height);
  CExtractorEngine engine(256, 256);
  prime(engine);
  engine.run(photo.data(), width, height, width * 3);
  for (auto _ : state) {
    engine.descriptors->run(*engine.working, engine.buffers);
    benchmark::DoNotOptimize(engine.buffers);
  }
  state.SetItemsProcessed(state.iterations());
}

void photoSizes(benchmark::internal::Benchmark* b) {
  b->Args({640, 480})->Args({1920, 1080})->Args({4000, 3000})->Args({300, 40});
  b->Unit(benchmark::kMicrosecond);
}

BENCHMARK(BM_Extract)->Apply(photoSizes);
BENCHMARK(BM_FitIntoBox)->Apply(photoSizes);
BENCHMARK(BM_Analysis)->Apply(photoSizes);

#ifdef ORVANE_BENCH_OPENCV
void BM_BlockMeanHash(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  const int height = static_cast<int>(state.range(1));
  std::vector<unsigned char> photo = makePhoto(width, height);
  const cv::Mat pixels(height, width, CV_8UC3, photo.data(), static_cast<size_t>(width) * 3);
  const cv::Ptr<cv::img_hash::BlockMeanHash> hash =
      cv::img_hash::BlockMeanHash::create(cv::img_hash::BLOCK_MEAN_HASH_MODE_0);
  cv::Mat out;
  for (auto _ : state) {
    hash->compute(pixels, out);
    benchmark::DoNotOptimize(out.data);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BlockMeanHash)->Apply(photoSizes);
#endif

// Keeps the console output and the CPU time per iteration of every run.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) cpuTime[run.benchmark_name()] = run.GetAdjustedCPUTime();
  }
  std::map<std::string, double> cpuTime;
};

}  // namespace

int main(int argc, char** argv) {
#ifdef ORVANE_BENCH_OPENCV
  cv::setNumThreads(1);  // one thread, like the library
#endif
  std::vector<const SImagingColumn*> columns = vectorColumns();
  columns.push_back(&kGenericColumn);
  for (const SImagingColumn* column : columns) {
    benchmark::RegisterBenchmark((std::string("BM_Extract_") + column->name).c_str(), extractWith,
                                 column)
        ->Apply(photoSizes);
  }
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::vector<std::string> extracts = {"BM_Extract"};
  for (const SImagingColumn* column : columns)
    extracts.push_back(std::string("BM_Extract_") + column->name);
  for (const char* size : {"640/480", "1920/1080", "4000/3000", "300/40"}) {
    const auto hash = reporter.cpuTime.find(std::string("BM_BlockMeanHash/") + size);
    if (hash == reporter.cpuTime.end()) continue;
    for (const std::string& name : extracts) {
      const auto extract = reporter.cpuTime.find(name + "/" + size);
      if (extract == reporter.cpuTime.end()) continue;
      std::printf("%s / BlockMeanHash (mode 0) at %s, CPU time: %.2f\n", name.c_str(), size,
                  extract->second / hash->second);
    }
  }
#ifndef ORVANE_BENCH_OPENCV
  std::printf("built without OpenCV: no BlockMeanHash comparison\n");
#endif
  benchmark::Shutdown();
  return 0;
}
