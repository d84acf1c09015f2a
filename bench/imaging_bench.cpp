// Benchmarks of the image analysis, single thread, on in-memory BGR photos of 640x480,
// 1920x1080 and 4000x3000 (a fixed pseudo-random texture with smooth colour gradients):
//   BM_Extract     the whole run: fit into the 256x256 box, gray and HSV images, the edge
//                  and colour histograms, the rows of the signature;
//   BM_FitIntoBox  the fit (the cubic resize into the box) alone;
//   BM_Analysis    everything after the fit (CDescriptorExtractor::run on the fitted image).
// Items are photos; the time per photo is the reported time per iteration.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "imaging/CDescriptorExtractor.h"
#include "imaging/CExtractorEngine.h"
#include "imaging/CImageBuffer.h"
#include "imaging/CPreprocessor.h"

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

void BM_Extract(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  const int height = static_cast<int>(state.range(1));
  const std::vector<unsigned char> photo = makePhoto(width, height);
  CExtractorEngine engine(256, 256);
  for (auto _ : state) {
    engine.run(photo.data(), width, height, width * 3);
    benchmark::DoNotOptimize(engine.buffers);
  }
  state.SetItemsProcessed(state.iterations());
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
  engine.run(photo.data(), width, height, width * 3);
  for (auto _ : state) {
    engine.descriptors->run(*engine.working, engine.buffers);
    benchmark::DoNotOptimize(engine.buffers);
  }
  state.SetItemsProcessed(state.iterations());
}

void photoSizes(benchmark::internal::Benchmark* b) {
  b->Args({640, 480})->Args({1920, 1080})->Args({4000, 3000})->Unit(benchmark::kMicrosecond);
}

BENCHMARK(BM_Extract)->Apply(photoSizes);
BENCHMARK(BM_FitIntoBox)->Apply(photoSizes);
BENCHMARK(BM_Analysis)->Apply(photoSizes);

}  // namespace
