// The search engine on libraries that look like real ones, the way the orvane tool uses it:
//   dups   all same-photo pairs at -j N (wall time, share of pairs the bounds rule out,
//          planted duplicates found);
//   open   a library file of all the photos opened for a search: vectors read from the file
//          (and the rate), engine built;
//   find   queries against it: the same photo, and the 10 nearest (time per query).
// Each figure is printed with the load average of the moment: the machine is shared.
//
// The photos: crops (20 to 70 % of each side), zooms (longer side 200 to 700 pixels), mirror
// images and colour changes (gain per channel, gamma, saturation, brightness, hues turned by
// a random angle) of the
// photographs in /usr/share/backgrounds (Debian's mate-backgrounds, gnome-backgrounds and
// ukui-wallpapers: bench/search_bench.sh installs them), extracted by the library. Every 33rd photo
// also has a planted duplicate: the same picture resized, re-encoded as a JPEG of low quality
// and cropped by 1 to 3 % per side. Past the first 100,000 (or --extracted E), photos are
// derived from extracted ones: each tile (its edges, or its hue, saturation and value) taken
// from one of two extracted photos, then mass moved between neighbouring histogram bins of
// every tile and edge strengths scaled (the run says how many derived photos still count as
// the same photo as an extracted one).
// The extracted signatures are kept in $TMPDIR/orvane-search-bench for later runs.
//
// Usage: search_bench [--photos N] [--extracted E] [--jobs J] [--queries Q] [--skip-dups]
//                     [--skip-find]
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>
#include <vips/vips8>

#include "search/CSearchEngine.h"
#include "signature/CAudioSignMulti.h"
#include "signature/CSignDataMulti.h"
#include "tools/orvane/CPhotoLibrary.h"
#include "tools/orvane/PhotoDecoder.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kSource = "/usr/share/backgrounds";
constexpr size_t kDuplicateEvery = 33;
constexpr size_t kTileFloats = 96 + 144 + 36 + 36;
const char* const kFeatures[] = {"EDG", "HUE", "SAT", "VAL"};
constexpr size_t kFeatureFloats[] = {96, 144, 36, 36};

struct SPhoto {
  uint32_t duplicateOf = UINT32_MAX;  // the photo it is a planted copy of
  float tiles[kTileFloats];
};

double seconds(Clock::time_point since) {
  return std::chrono::duration<double>(Clock::now() - since).count();
}

// Processor time of the process (all threads), or of the calling thread: on a shared machine
// it tells the work apart from the waiting.
double processorSeconds(clockid_t clock) {
  timespec t;
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

std::string load() {
  std::ifstream in("/proc/loadavg");
  std::string one, five, fifteen;
  in >> one >> five >> fifteen;
  return "load " + one + " " + five + " " + fifteen;
}

long peakKilobytes() {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::atol(line.c_str() + 6);
  }
  return 0;
}

fs::path workFolder() {
  const char* tmp = std::getenv("TMPDIR");
  return fs::path(tmp != nullptr ? tmp : "/tmp") / "orvane-search-bench";
}

// The tiles of an extracted signature, feature after feature.
void tilesOf(const CFIDContainer& container, float* tiles) {
  std::stringstream stream;
  container.write(stream);
  CAudioSignMulti signature;
  signature.read(stream, nullptr);
  for (size_t f = 0; f < 4; ++f) {
    const CFeatureObject<float>* feature = signature.getData()->getFeature(kFeatures[f]);
    std::copy_n(feature->m_matrix.m_data, kFeatureFloats[f], tiles);
    tiles += kFeatureFloats[f];
  }
}

void extract(CFIDExtractor& extractor, const vips::VImage& rgb, float* tiles) {
  const vips::VImage bgr = rgb[2].bandjoin(rgb[1]).bandjoin(rgb[0]);
  size_t size = 0;
  void* pixels = bgr.write_to_memory(&size);
  tilesOf(extractor.extract(static_cast<const unsigned char*>(pixels), bgr.width(),
                            bgr.height(), bgr.width() * 3, 0, 0),
          tiles);
  g_free(pixels);
}

// A picture of its own for photo k: crop, zoom, mirror and colour change of a source.
vips::VImage picture(const std::vector<vips::VImage>& sources, std::mt19937& random, size_t k) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const auto within = [&](double low, double high) { return low + (high - low) * unit(random); };
  vips::VImage image = sources[k % sources.size()];
  const int width = static_cast<int>(image.width() * within(0.2, 0.7));
  const int height = static_cast<int>(image.height() * within(0.2, 0.7));
  image = image.crop(static_cast<int>((image.width() - width) * unit(random)),
                     static_cast<int>((image.height() - height) * unit(random)), width, height);
  image = image.resize(within(200, 700) / std::max(width, height));
  if (unit(random) < 0.5) image = image.flip(VIPS_DIRECTION_HORIZONTAL);
  const std::vector<double> gain{within(0.75, 1.25), within(0.75, 1.25), within(0.75, 1.25)};
  vips::VImage x = (image / 255.0).pow(within(0.65, 1.5)).linear(gain, {0.0, 0.0, 0.0});
  const vips::VImage grey = (x[0] + x[1] + x[2]) / 3.0;
  x = grey + (x - grey) * within(0.5, 1.4);
  x = (x * 255.0 + within(-25, 25))
          .cast(VIPS_FORMAT_UCHAR)
          .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
  // Hues turned by a random angle.
  const vips::VImage lch = x.colourspace(VIPS_INTERPRETATION_LCH);
  const vips::VImage hue = (lch[2] + within(0, 360)).remainder_const({360.0});
  return lch[0]
      .bandjoin(lch[1])
      .bandjoin(hue)
      .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_LCH))
      .colourspace(VIPS_INTERPRETATION_sRGB)
      .cast(VIPS_FORMAT_UCHAR);
}

// The same picture resized, re-encoded at low JPEG quality and cropped a little.
vips::VImage plantedCopy(const vips::VImage& picture, std::mt19937& random) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const vips::VImage smaller = picture.resize(0.5 + 0.4 * unit(random));
  void* jpeg = nullptr;
  size_t size = 0;
  smaller.write_to_buffer(".jpg", &jpeg, &size,
                          vips::VImage::option()->set("Q", static_cast<int>(30 + 50 * unit(random))));
  const vips::VImage decoded = vips::VImage::new_from_buffer(jpeg, size, "").copy_memory();
  g_free(jpeg);
  const int left = static_cast<int>(decoded.width() * (0.01 + 0.02 * unit(random)));
  const int top = static_cast<int>(decoded.height() * (0.01 + 0.02 * unit(random)));
  return decoded.crop(left, top, decoded.width() - 2 * left, decoded.height() - 2 * top);
}

// The first `count` photos, extracted on `jobs` threads and kept on disk.
std::vector<SPhoto> extractedPhotos(size_t count, unsigned jobs) {
  const fs::path cache = workFolder() / ("photos-" + std::to_string(count) + ".bin");
  std::vector<SPhoto> photos(count);
  if (std::ifstream in{cache, std::ios::binary}) {
    in.read(reinterpret_cast<char*>(photos.data()), count * sizeof(SPhoto));
    if (static_cast<size_t>(in.gcount()) == count * sizeof(SPhoto)) {
      std::printf("signatures of %zu extracted photos read from %s\n", count, cache.c_str());
      return photos;
    }
  }
  std::vector<vips::VImage> sources;
  std::vector<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(kSource)) {
    const std::string ext = entry.path().extension().string();
    if (ext == ".jpg" || ext == ".png") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  for (const std::string& file : files) {
    vips::VImage image = vips::VImage::thumbnail(file.c_str(), 1024).colourspace(VIPS_INTERPRETATION_sRGB);
    if (image.bands() > 3) image = image.extract_band(0, vips::VImage::option()->set("n", 3));
    sources.push_back(image.copy_memory());
  }
  std::printf("extracting %zu photos from %zu photographs of %s on %u threads\n", count,
              sources.size(), kSource, jobs);
  std::vector<std::unique_ptr<CFIDExtractor>> extractors;
  for (unsigned j = 0; j < jobs; ++j) extractors.push_back(std::make_unique<CFIDExtractor>(1));
  std::atomic<size_t> next{0};
  const Clock::time_point start = Clock::now();
  std::vector<std::thread> workers;
  for (unsigned j = 0; j < jobs; ++j) {
    workers.emplace_back([&, j] {
      for (size_t k; (k = next.fetch_add(kDuplicateEvery)) < count;) {
        // Photo k and, from the same picture, its planted copy at k + 1; then pictures of
        // their own up to the next multiple.
        for (size_t i = k; i < std::min(count, k + kDuplicateEvery); ++i) {
          std::mt19937 random(static_cast<uint32_t>(i * 7919 + 17));
          if (i == k + 1) continue;
          const vips::VImage image = picture(sources, random, i);
          extract(*extractors[j], image, photos[i].tiles);
          if (i == k && k + 1 < count) {
            extract(*extractors[j], plantedCopy(image, random), photos[k + 1].tiles);
            photos[k + 1].duplicateOf = static_cast<uint32_t>(k);
          }
        }
        if (j == 0 && k % (kDuplicateEvery * 300) == 0) {
          std::printf("  %zu photos, %.0f s\n", k, seconds(start));
          std::fflush(stdout);
        }
      }
      endDecoderThread();
    });
  }
  for (std::thread& worker : workers) worker.join();
  std::printf("extracted %zu photos in %.0f s (%s)\n", count, seconds(start), load().c_str());
  fs::create_directories(workFolder());
  std::ofstream(cache, std::ios::binary)
      .write(reinterpret_cast<const char*>(photos.data()), count * sizeof(SPhoto));
  return photos;
}

// A photo derived from two: each edge tile and each colour tile from `first` or `second`,
// then, in every colour tile, mass moved between neighbouring bins (a share of the smaller of
// the two, up to `amount`, either way) and edge strengths scaled by up to +-amount.
void derive(const SPhoto& first, const SPhoto& second, float amount, std::mt19937& random,
            SPhoto& out) {
  std::uniform_real_distribution<float> share(-amount, amount);
  out.duplicateOf = UINT32_MAX;
  for (size_t tile = 0; tile < 16; ++tile) {
    const SPhoto& from = random() % 2 ? first : second;
    for (size_t i = tile * 6; i < tile * 6 + 6; ++i) out.tiles[i] = from.tiles[i] * (1.0f + share(random));
  }
  const size_t bins[] = {16, 4, 4};
  for (size_t tile = 0; tile < 9; ++tile) {
    const SPhoto& from = random() % 2 ? first : second;
    size_t at = 96;
    for (size_t f = 0; f < 3; ++f) {
      float* t = out.tiles + at + tile * bins[f];
      std::copy_n(from.tiles + at + tile * bins[f], bins[f], t);
      for (size_t b = 0; b + 1 < bins[f]; ++b) {
        const float moved = share(random) * std::min(t[b], t[b + 1]);
        t[b] -= moved;
        t[b + 1] += moved;
      }
      at += 9 * bins[f];
    }
  }
}

CPhotoVectors vectorsOf(const std::vector<SPhoto>& photos) {
  CPhotoVectors vectors;
  vectors.reserve(photos.size());
  for (size_t i = 0; i < photos.size(); ++i) {
    const float* tiles = photos[i].tiles;
    vectors.addFeatures("V6", [tiles](const std::string& name, uint32_t) {
      size_t offset = 0;
      for (size_t f = 0; name != kFeatures[f]; ++f) offset += kFeatureFloats[f];
      return tiles + offset;
    }, static_cast<uint32_t>(i + 1));
  }
  return vectors;
}

}  // namespace

int main(int argc, char** argv) {
  size_t count = 100000;
  size_t extracted = 100000;  // photos past this are derived
  unsigned jobs = 2;
  size_t queries = 100;
  bool dups = true;
  bool find = true;
  for (int a = 1; a < argc; ++a) {
    const std::string arg = argv[a];
    if (arg == "--photos" && a + 1 < argc) count = std::strtoul(argv[++a], nullptr, 10);
    else if (arg == "--extracted" && a + 1 < argc) extracted = std::strtoul(argv[++a], nullptr, 10);
    else if (arg == "--jobs" && a + 1 < argc) jobs = std::strtoul(argv[++a], nullptr, 10);
    else if (arg == "--queries" && a + 1 < argc) queries = std::strtoul(argv[++a], nullptr, 10);
    else if (arg == "--skip-dups") dups = false;
    else if (arg == "--skip-find") find = false;
    else {
      std::fprintf(stderr, "usage: search_bench [--photos N] [--extracted E] [--jobs J] [--queries Q] "
                           "[--skip-dups] [--skip-find]\n");
      return 2;
    }
  }
  CDecoderSession session(argv[0]);
  vips_concurrency_set(1);  // the workers are the threads
  std::printf("search_bench: %zu photos, -j %u, %u cores, %s\n", count, jobs,
              std::thread::hardware_concurrency(), load().c_str());

  std::vector<SPhoto> photos = extractedPhotos(std::min(count, extracted), jobs);
  if (count > extracted) {
    std::mt19937 random(2027);
    const size_t base = photos.size();
    photos.resize(count);
    for (size_t i = base; i < count; ++i) {
      derive(photos[random() % base], photos[random() % base], 0.3f, random, photos[i]);
    }
  }
  size_t planted = 0;
  for (const SPhoto& p : photos) planted += p.duplicateOf != UINT32_MAX;
  CPhotoVectors vectors = vectorsOf(photos);
  if (count > extracted) {
    // How far the derived photos lie from their origin, on a sample.
    std::mt19937 random(2027);
    CSearchEngine sample(vectorsOf(std::vector<SPhoto>(photos.begin(), photos.begin() + extracted)), 1);
    size_t near = 0, checked = 0;
    for (size_t i = extracted; i < count; i += 997, ++checked) {
      std::vector<SPhoto> one(1, photos[i]);
      near += !sample.samePhoto(vectorsOf(one), 0).empty();
    }
    std::printf("derived photos with a same photo among the extracted ones: %zu of %zu sampled\n",
                near, checked);
  }
  std::printf("%zu photos, %zu planted duplicates\n", count, planted);

  if (dups) {
    const Clock::time_point start = Clock::now();
    const double startCpu = processorSeconds(CLOCK_PROCESS_CPUTIME_ID);
    CSearchEngine engine(CPhotoVectors(vectors), jobs);
    const double built = seconds(start);
    uint64_t scored = 0;
    Clock::time_point lastNote = Clock::now();
    const std::vector<SPhotoPair> pairs = engine.samePhotoPairs(
        [&](size_t done, size_t total) {
          if (seconds(lastNote) < 60) return;
          lastNote = Clock::now();
          std::printf("  dups: %zu of %zu photos after %.0f s (%s)\n", done, total,
                      seconds(start), load().c_str());
          std::fflush(stdout);
        },
        &scored);
    const double wall = seconds(start);
    const double cpu = processorSeconds(CLOCK_PROCESS_CPUTIME_ID) - startCpu;
    const double all = 0.5 * static_cast<double>(count) * static_cast<double>(count - 1);
    std::set<std::pair<uint32_t, uint32_t>> found;
    for (const SPhotoPair& p : pairs) found.emplace(p.first, p.second);
    size_t plantedFound = 0;
    for (size_t i = 0; i < count; ++i) {
      if (photos[i].duplicateOf != UINT32_MAX) {
        plantedFound += found.count({photos[i].duplicateOf, static_cast<uint32_t>(i)});
      }
    }
    std::printf("dups: %.1f s wall, %.1f s processor at -j %u (engine built in %.1f s), %zu "
                "same-photo pairs, %zu of %zu planted pairs, bounds ruled out %.5f %% of %.3g "
                "pairs (%s)\n",
                wall, cpu, jobs, built, pairs.size(), plantedFound, planted,
                100.0 * (1.0 - static_cast<double>(scored) / all), all, load().c_str());
    std::printf("memory: engine %zu bytes per photo, process peak %.0f bytes per photo\n",
                engine.bytesPerPhoto(), peakKilobytes() * 1024.0 / count);
  }

  if (!find) return 0;
  // The library file: one row per photo (a real signature stream as its blob) and the cache.
  const fs::path file = workFolder() / ("library-" + std::to_string(count) + ".orvane");
  if (!fs::exists(file)) {
    const Clock::time_point start = Clock::now();
    CPhotoLibrary library(file.string(), CPhotoLibrary::Access::kCreate);
    CFIDExtractor extractor(1);
    std::vector<unsigned char> grey(320 * 240 * 3, 128);
    std::ostringstream stream;
    extractor.extract(grey.data(), 320, 240, 320 * 3, 0, 0).write(stream);
    library.begin();
    for (size_t i = 0; i < count; ++i) {
      library.putPhoto("/photos/" + std::to_string(i) + ".jpg", {1000, 1000}, stream.str());
    }
    library.commit();
    library.storeVectors(vectors);
    std::printf("library file of %zu photos written in %.0f s: %.2f GB\n", count,
                seconds(start), fs::file_size(file) / 1e9);
  }
  vectors = CPhotoVectors();
  {
    const Clock::time_point start = Clock::now();
    const double startCpu = processorSeconds(CLOCK_PROCESS_CPUTIME_ID);
    CPhotoLibrary library(file.string(), CPhotoLibrary::Access::kExisting);
    CPhotoVectors read = library.loadVectors(nullptr);
    const double readSeconds = seconds(start);
    const double bytes = static_cast<double>(read.size()) * CPhotoVectors::photoFloats() * 4;
    CSearchEngine engine(std::move(read), jobs);
    const double open = seconds(start);
    std::printf("open: %.2f s wall, %.2f s processor, for %zu photos (vectors read in %.2f s, "
                "%.2f GB/s) (%s)\n",
                open, processorSeconds(CLOCK_PROCESS_CPUTIME_ID) - startCpu, engine.size(),
                readSeconds, bytes / readSeconds / 1e9, load().c_str());

    std::mt19937 random(99);
    double same = 0, nearest = 0, worst = 0, cpu = 0, worstCpu = 0;
    for (size_t q = 0; q < queries; ++q) {
      SPhoto query;
      const SPhoto& origin = photos[random() % std::min(count, extracted)];
      derive(origin, origin, 0.1f, random, query);
      const CPhotoVectors one = vectorsOf(std::vector<SPhoto>(1, query));
      const double queryCpu = processorSeconds(CLOCK_PROCESS_CPUTIME_ID);
      Clock::time_point t = Clock::now();
      engine.samePhoto(one, 0);
      const double s = seconds(t);
      t = Clock::now();
      engine.nearest(one, 0, 10);
      const double n = seconds(t);
      const double used = processorSeconds(CLOCK_PROCESS_CPUTIME_ID) - queryCpu;
      cpu += used;
      worstCpu = std::max(worstCpu, used);
      same += s;
      nearest += n;
      worst = std::max({worst, s, n});
    }
    std::printf("find: per query %.1f ms same photo, %.1f ms 10 nearest, %.1f ms at worst; "
                "processor for both %.1f ms, %.1f ms at worst (%s)\n",
                1e3 * same / queries, 1e3 * nearest / queries, 1e3 * worst,
                1e3 * cpu / queries, 1e3 * worstCpu, load().c_str());
  }
  return 0;
}
