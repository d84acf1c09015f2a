#include "search/CSearchEngine.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <cmath>
#include <exception>
#include <mutex>
#include <queue>
#include <thread>

#include "database/CFeatureGroup.h"

namespace {

constexpr size_t kDims = CBoundEmbedding::kDims;
constexpr size_t kMeanDims = CBoundEmbedding::kMeanDims;
constexpr size_t kLanes = CBoundEmbedding::kLanes;

// Photos scored per call of a many-vector kernel.
constexpr size_t kScoreChunk = 64;
// Rows whose pairs one work item finds; and rows compared per pass, small enough that they
// stay in cache while every row of the block meets them.
constexpr size_t kBlockRows = 64;
constexpr size_t kTileRows = 512;
// A query scores or bounds this many photos or more on every thread.
constexpr size_t kParallelPhotos = 4 * kScoreChunk;
// A nearest query first scores at least this many photos of the lowest bounds; then takes
// the others kScanPhotos positions at a time, bounding kBoundGroups groups of rows per call.
constexpr size_t kEarlyPhotos = 256;
constexpr size_t kScanPhotos = 1024;
constexpr size_t kBoundGroups = 64;
// Photos sampled to choose the key.
constexpr size_t kKeySample = 10000;

const float kRankedNan = [] {
  const uint32_t bits = 0x7fffffffu;
  float nan;
  std::memcpy(&nan, &bits, sizeof nan);
  return nan;
}();

// The order of classify's ranking: ascending score, NaN after every number, equal scores by
// position.
bool ranksBefore(const SPhotoMatch& a, const SPhotoMatch& b) {
  const bool aNan = std::isnan(a.score);
  const bool bNan = std::isnan(b.score);
  if (aNan != bNan) return bNan;
  if (!aNan && a.score != b.score) return a.score < b.score;
  return a.position < b.position;
}

bool byPositions(const SPhotoPair& a, const SPhotoPair& b) {
  return a.first != b.first ? a.first < b.first : a.second < b.second;
}

bool isSame(float score) {
  return static_cast<double>(score) <= CSearchEngine::kSamePhotoThreshold;
}

// Runs work(t) for t = 0..threads-1, each on a thread of its own (the last on the calling
// thread), and rethrows the first failure.
template <typename Work>
void onThreads(unsigned threads, const Work& work) {
  std::exception_ptr failure;
  std::mutex failureLock;
  const auto run = [&](unsigned t) {
    try {
      work(t);
    } catch (...) {
      std::lock_guard<std::mutex> hold(failureLock);
      if (!failure) failure = std::current_exception();
    }
  };
  std::vector<std::thread> workers;
  for (unsigned t = 0; t + 1 < threads; ++t) workers.emplace_back(run, t);
  run(threads - 1);
  for (std::thread& worker : workers) worker.join();
  if (failure) std::rethrow_exception(failure);
}

// Runs work(begin, end) on `parts` threads, each over its share of groups 0..groups-1.
template <typename Work>
void onShares(unsigned parts, size_t groups, const Work& work) {
  onThreads(parts, [&](unsigned t) { work(groups * t / parts, groups * (t + 1) / parts); });
}

// Runs work(item, out) for items 0..count-1 on `threads` threads, each collecting into its
// own list; work returns the photos the item covered, of `photos` in all. Calls progress from
// this thread while they run. Returns the lists joined.
template <typename Work>
std::vector<SPhotoPair> runParallel(unsigned threads, size_t count, size_t photos,
                                    const Work& work, const CSearchEngine::Progress& progress) {
  std::atomic<size_t> next{0};
  std::atomic<size_t> done{0};
  std::atomic<unsigned> running{threads};
  std::vector<std::vector<SPhotoPair>> found(threads);
  std::exception_ptr failure;
  std::mutex failureLock;
  std::vector<std::thread> workers;
  for (unsigned t = 0; t < threads; ++t) {
    workers.emplace_back([&, t] {
      try {
        for (size_t item; (item = next.fetch_add(1)) < count;) {
          done.fetch_add(work(item, found[t]));
        }
      } catch (...) {
        std::lock_guard<std::mutex> hold(failureLock);
        if (!failure) failure = std::current_exception();
        next.store(count);
      }
      running.fetch_sub(1);
    });
  }
  while (progress && running.load() > 0) {
    progress(done.load(), photos);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  for (std::thread& worker : workers) worker.join();
  if (failure) std::rethrow_exception(failure);
  if (progress) progress(photos, photos);
  std::vector<SPhotoPair> all;
  for (std::vector<SPhotoPair>& list : found) {
    all.insert(all.end(), list.begin(), list.end());
    std::vector<SPhotoPair>().swap(list);
  }
  return all;
}

}  // namespace

CSearchEngine::CSearchEngine(CPhotoVectors photos, unsigned threads)
    : vectors(std::move(photos)), threads(std::max(1u, threads)) {
  const size_t count = vectors.size();
  std::vector<float> allRows(count * kDims);
  std::vector<char> bounded(count);
  meanLanes.resize((count + kLanes - 1) / kLanes * kLanes * kMeanDims);
  // Rows on all threads: the embedding is the bulk of the set-up. The first parts wait for
  // the key order; the second parts stay in position order.
  // Each thread takes whole groups of kLanes, so that no two write one cache line.
  onShares(this->threads, (count + kLanes - 1) / kLanes, [&](size_t begin, size_t end) {
    float row[CBoundEmbedding::kRowDims];
    for (size_t i = begin * kLanes; i < std::min(count, end * kLanes); ++i) {
      bounded[i] = embedding.embed(vectors, i, row) <= CBoundEmbedding::kMaxMass;
      std::copy(row, row + kDims, &allRows[i * kDims]);
      float* group = &meanLanes[i / kLanes * kLanes * kMeanDims];
      for (size_t d = 0; d < kMeanDims; ++d) group[d * kLanes + i % kLanes] = row[kDims + d];
    }
  });
  std::vector<uint32_t> boundedPositions;
  for (size_t i = 0; i < count; ++i) {
    (bounded[i] ? boundedPositions : unbounded).push_back(static_cast<uint32_t>(i));
  }
  chooseKeyAndEntries(allRows, boundedPositions);
  // Mode 0 bounds weigh every entry 1 (laneDistances without factors).
  for (size_t d = 0; d < kDims; ++d) modeOneFactors[d] = embedding.modeFactors(1)[entries[d]];
  std::vector<std::pair<double, uint32_t>> keyed;
  keyed.reserve(boundedPositions.size());
  for (uint32_t i : boundedPositions) keyed.emplace_back(keyOf(&allRows[i * size_t{kDims}]), i);
  std::sort(keyed.begin(), keyed.end());
  keys.reserve(keyed.size());
  order.reserve(keyed.size());
  lanes.resize((keyed.size() + kLanes - 1) / kLanes * kLanes * kDims);
  for (size_t r = 0; r < keyed.size(); ++r) {
    keys.push_back(keyed[r].first);
    order.push_back(keyed[r].second);
    const float* row = &allRows[keyed[r].second * size_t{kDims}];
    float* group = &lanes[r / kLanes * kLanes * kDims];
    for (size_t d = 0; d < kDims; ++d) group[d * kLanes + r % kLanes] = row[entries[d]];
  }
}

// The vectors and id, two copies of the bounds' first parts (all photos' and the ordered
// ones, with up to kLanes - 1 more), their second parts, key, order, and the sort's (key,
// position) pairs.
size_t CSearchEngine::memoryPerPhoto() {
  return CPhotoVectors::photoFloats() * sizeof(float) + sizeof(uint32_t) +
         (2 * kDims + kMeanDims) * sizeof(float) + sizeof(double) + sizeof(uint32_t) +
         sizeof(std::pair<double, uint32_t>) + 1;
}

size_t CSearchEngine::bytesPerPhoto() const {
  if (vectors.size() == 0) return 0;
  const size_t bytes = vectors.size() * (CPhotoVectors::photoFloats() * sizeof(float) +
                                         sizeof(uint32_t)) +
                       (lanes.size() + meanLanes.size()) * sizeof(float) +
                       keys.size() * sizeof(double) +
                       order.size() * sizeof(uint32_t) + unbounded.size() * sizeof(uint32_t);
  return bytes / vectors.size();
}

// The key is sum of c_d * E_d with |c_d| <= 1, so |key(x) - key(y)| <= ||E(x) - E(y)||_1: it
// bounds the distance. c is the direction along which the rows spread most (the leading
// eigenvector of their covariance, by power iteration over a sample), scaled to max |c_d| = 1.
// Entries are kept by descending variance, so that a bound's first entries, which decide
// most pairs, hold most of the distance.
void CSearchEngine::chooseKeyAndEntries(const std::vector<float>& allRows,
                                        const std::vector<uint32_t>& bounded) {
  keyFactors.assign(kDims, 0.0);
  entries.resize(kDims);
  for (size_t d = 0; d < kDims; ++d) entries[d] = static_cast<uint32_t>(d);
  if (bounded.empty()) return;
  const size_t step = std::max<size_t>(1, bounded.size() / kKeySample);
  std::vector<double> mean(kDims, 0.0);
  size_t samples = 0;
  for (size_t s = 0; s < bounded.size(); s += step, ++samples) {
    for (size_t d = 0; d < kDims; ++d) mean[d] += allRows[bounded[s] * kDims + d];
  }
  for (double& m : mean) m /= static_cast<double>(samples);
  std::vector<double> covariance(kDims * kDims, 0.0);
  for (size_t s = 0; s < bounded.size(); s += step) {
    double centred[kDims];
    for (size_t d = 0; d < kDims; ++d) centred[d] = allRows[bounded[s] * kDims + d] - mean[d];
    for (size_t a = 0; a < kDims; ++a) {
      for (size_t b = 0; b < kDims; ++b) covariance[a * kDims + b] += centred[a] * centred[b];
    }
  }
  std::stable_sort(entries.begin(), entries.end(), [&covariance](uint32_t a, uint32_t b) {
    return covariance[a * kDims + a] > covariance[b * kDims + b];
  });
  std::vector<double> c(kDims, 1.0);
  for (int iteration = 0; iteration < 100; ++iteration) {
    std::vector<double> next(kDims, 0.0);
    for (size_t a = 0; a < kDims; ++a) {
      for (size_t b = 0; b < kDims; ++b) next[a] += covariance[a * kDims + b] * c[b];
    }
    double largest = 0.0;
    for (double v : next) largest = std::max(largest, std::fabs(v));
    if (!(largest > 0.0) || !std::isfinite(largest)) return;  // no spread: every key 0
    for (size_t d = 0; d < kDims; ++d) c[d] = next[d] / largest;
  }
  // Each step c = sign(C c) never lowers c'Cc (C is positive semi-definite, so c'Cc lies
  // above its tangent, and the step maximises the tangent over the box): it ends at a corner
  // of the box that spreads the rows at least as much as the scaled eigenvector.
  for (int iteration = 0; iteration < 100; ++iteration) {
    std::vector<double> next(kDims, 0.0);
    for (size_t a = 0; a < kDims; ++a) {
      double product = 0.0;
      for (size_t b = 0; b < kDims; ++b) product += covariance[a * kDims + b] * c[b];
      next[a] = product < 0.0 ? -1.0 : 1.0;
    }
    if (next == c) break;
    c = next;
  }
  keyFactors = c;
}

void CSearchEngine::inEntryOrder(const float* row, float* out) const {
  for (size_t d = 0; d < kDims; ++d) out[d] = row[entries[d]];
}

double CSearchEngine::keyOf(const float* row) const {
  double key = 0.0;
  for (size_t d = 0; d < kDims; ++d) key += keyFactors[d] * static_cast<double>(row[d]);
  return key;
}

CSearchEngine::SWindow CSearchEngine::window(double key, double limit) const {
  const auto begin = std::lower_bound(keys.begin(), keys.end(), key - limit);
  const auto end = std::upper_bound(begin, keys.end(), key + limit);
  return {static_cast<size_t>(begin - keys.begin()), static_cast<size_t>(end - keys.begin())};
}

// Each group: d = the kernel of the group's row for the mode (stored photo, query), then
// share = (float)(d * (double)scale); score = (((0 + share0) + share1) + share2) + share3
// in float, groups in order: classify's arithmetic.
void CSearchEngine::score(const CPhotoVectors& queries, size_t query, const uint32_t* positions,
                          size_t count, int mode, float* scores) const {
  const std::vector<CFeatureGroup>& groups = CPhotoVectors::groups();
  const float* stored[kScoreChunk];
  uint32_t storedLength[kScoreChunk];
  double distance[kScoreChunk];
  for (size_t start = 0; start < count; start += kScoreChunk) {
    const size_t n = std::min(kScoreChunk, count - start);
    // The next chunk's vectors are fetched while this one is scored: the photos lie
    // anywhere in memory, and waiting on each in turn would take twice as long.
    for (size_t k = start + n; k < std::min(count, start + n + kScoreChunk); ++k) {
      for (size_t g = 0; g < groups.size(); ++g) {
        const char* v = reinterpret_cast<const char*>(vectors.vector(g, positions[k]));
        const size_t bytes = groups[g].distanceRows[mode].end * sizeof(float);
        for (size_t b = 0; b < bytes; b += 64) __builtin_prefetch(v + b);
      }
    }
    float* total = scores + start;
    std::fill_n(total, n, 0.0f);
    for (size_t g = 0; g < groups.size(); ++g) {
      const CFeatureGroup& group = groups[g];
      const SDistanceRow& row = group.distanceRows[mode];
      const uint32_t length = CPhotoVectors::vectorLength(g);
      for (size_t k = 0; k < n; ++k) {
        stored[k] = vectors.vector(g, positions[start + k]);
        storedLength[k] = length;
      }
      distanceManyOf(group.distanceFunctions[mode])(stored, storedLength, n,
                                                     queries.vector(g, query), length, row.start,
                                                     row.end, group.binsPerTile, distance);
      const double scale = static_cast<double>(group.scale);
      for (size_t k = 0; k < n; ++k) total[k] += static_cast<float>(distance[k] * scale);
    }
    // The database's ranking hands every NaN score over as the one pattern 0x7fffffff.
    for (size_t k = 0; k < n; ++k) {
      if (std::isnan(total[k])) total[k] = kRankedNan;
    }
  }
}

size_t CSearchEngine::keepSame(uint32_t query, const std::vector<uint32_t>& candidates,
                               std::vector<SPhotoPair>& out) const {
  std::vector<float> scores(candidates.size());
  score(vectors, query, candidates.data(), candidates.size(), 0, scores.data());
  for (size_t k = 0; k < candidates.size(); ++k) {
    if (!isSame(scores[k])) continue;
    out.push_back({std::min(query, candidates[k]), std::max(query, candidates[k]), scores[k]});
  }
  return candidates.size();
}

size_t CSearchEngine::pairsOfRows(size_t begin, size_t end, std::vector<SPhotoPair>& out) const {
  const double limit = CBoundEmbedding::limit(kSamePhotoThreshold, 0);
  const size_t last = window(keys[end - 1], limit).end;
  std::vector<size_t> rowEnd(end - begin);
  std::vector<float> x((end - begin) * kDims);
  for (size_t i = begin; i < end; ++i) {
    rowEnd[i - begin] = window(keys[i], limit).end;
    for (size_t d = 0; d < kDims; ++d) {
      x[(i - begin) * kDims + d] = lanes[(i / kLanes * kDims + d) * kLanes + i % kLanes];
    }
  }
  std::vector<std::vector<uint32_t>> candidates(end - begin);
  float bound[kTileRows];
  for (size_t tile = (begin + 1) / kLanes * kLanes; tile < last; tile += kTileRows) {
    const size_t tileEnd = std::min(last, tile + kTileRows);
    for (size_t i = begin; i < end; ++i) {
      const size_t from = std::max(tile, i + 1);
      const size_t to = std::min(tileEnd, rowEnd[i - begin]);
      if (from >= to) continue;
      const size_t first = from / kLanes;
      CBoundEmbedding::laneDistances(&x[(i - begin) * kDims], &lanes[first * kLanes * kDims],
                                     (to + kLanes - 1) / kLanes - first, kDims, nullptr,
                                     static_cast<float>(limit), bound);
      for (size_t j = from; j < to; ++j) {
        if (bound[j - first * kLanes] <= limit) candidates[i - begin].push_back(order[j]);
      }
    }
  }
  size_t scored = 0;
  for (size_t i = begin; i < end; ++i) scored += keepSame(order[i], candidates[i - begin], out);
  return scored;
}

size_t CSearchEngine::pairsOfUnbounded(size_t k, std::vector<SPhotoPair>& out) const {
  std::vector<uint32_t> candidates(order);
  candidates.insert(candidates.end(), unbounded.begin() + k + 1, unbounded.end());
  return keepSame(unbounded[k], candidates, out);
}

std::vector<SPhotoPair> CSearchEngine::samePhotoPairs(const Progress& progress,
                                                      uint64_t* scoredPairs) const {
  const size_t blocks = (order.size() + kBlockRows - 1) / kBlockRows;
  std::atomic<uint64_t> scored{0};
  std::vector<SPhotoPair> pairs = runParallel(
      threads, blocks + unbounded.size(), vectors.size(),
      [this, blocks, &scored](size_t item, std::vector<SPhotoPair>& out) -> size_t {
        if (item >= blocks) {
          scored.fetch_add(pairsOfUnbounded(item - blocks, out));
          return 1;
        }
        const size_t end = std::min(keys.size(), (item + 1) * kBlockRows);
        scored.fetch_add(pairsOfRows(item * kBlockRows, end, out));
        return end - item * kBlockRows;
      },
      progress);
  if (scoredPairs != nullptr) *scoredPairs = scored.load();
  std::sort(pairs.begin(), pairs.end(), byPositions);
  return pairs;
}

std::vector<SPhotoPair> CSearchEngine::samePhotoPairs(const CPhotoVectors& queries) const {
  std::vector<SPhotoPair> pairs = runParallel(
      threads, queries.size(), queries.size(),
      [this, &queries](size_t query, std::vector<SPhotoPair>& out) -> size_t {
        for (const SPhotoMatch& match : samePhoto(queries, query)) {
          out.push_back({static_cast<uint32_t>(query), match.position, match.score});
        }
        return 1;
      },
      nullptr);
  std::sort(pairs.begin(), pairs.end(), byPositions);
  return pairs;
}

std::vector<SPhotoMatch> CSearchEngine::samePhoto(const CPhotoVectors& queries,
                                                  size_t query) const {
  float row[CBoundEmbedding::kRowDims];
  const bool boundable = embedding.embed(queries, query, row) <= CBoundEmbedding::kMaxMass;
  std::vector<uint32_t> candidates(unbounded);
  if (boundable) {
    const double limit = CBoundEmbedding::limit(kSamePhotoThreshold, 0);
    const SWindow near = window(keyOf(row), limit);
    const size_t first = near.begin / kLanes;
    const size_t groups = (near.end + kLanes - 1) / kLanes - first;
    std::vector<float> bound(groups * kLanes);
    float x[kDims];
    inEntryOrder(row, x);
    CBoundEmbedding::laneDistances(x, &lanes[first * kLanes * kDims], groups, kDims, nullptr,
                                   static_cast<float>(limit), bound.data());
    for (size_t r = near.begin; r < near.end; ++r) {
      if (bound[r - first * kLanes] <= limit) candidates.push_back(order[r]);
    }
  } else {
    candidates.insert(candidates.end(), order.begin(), order.end());
  }
  std::vector<float> scores(candidates.size());
  score(queries, query, candidates.data(), candidates.size(), 0, scores.data());
  std::vector<SPhotoMatch> same;
  for (size_t k = 0; k < candidates.size(); ++k) {
    if (isSame(scores[k])) same.push_back({candidates[k], scores[k]});
  }
  std::sort(same.begin(), same.end(), ranksBefore);
  return same;
}

// First the photos of the lowest bounds, for an n-th best score close to the final one; then
// every other photo in position order (memory read in order, on every thread), a photo left
// out when its bound rules it out against the n-th best so far: it scores above that, so
// above the final n-th too, which only falls as photos are scored. A query without a bound
// scores every photo.
std::vector<SPhotoMatch> CSearchEngine::nearest(const CPhotoVectors& queries, size_t query,
                                                size_t n) const {
  n = std::min(n, vectors.size());
  if (n == 0) return {};
  float row[CBoundEmbedding::kRowDims];
  const bool boundable = embedding.embed(queries, query, row) <= CBoundEmbedding::kMaxMass;
  std::mutex lock;
  // The best n so far; the top is the n-th. A photo that ranks after the n-th can never
  // come back into the best n, so only the heap is kept.
  std::priority_queue<SPhotoMatch, std::vector<SPhotoMatch>, decltype(&ranksBefore)> best(
      ranksBefore);
  const auto scoreAll = [&](const uint32_t* positions, size_t count) {
    std::vector<float> scores(count);
    score(queries, query, positions, count, 1, scores.data());
    std::lock_guard<std::mutex> hold(lock);
    for (size_t k = 0; k < count; ++k) {
      const SPhotoMatch match{positions[k], scores[k]};
      if (best.size() == n && !ranksBefore(match, best.top())) continue;
      best.push(match);
      if (best.size() > n) best.pop();
    }
  };
  const auto limit = [&] {
    std::lock_guard<std::mutex> hold(lock);
    const double nth = best.size() < n ? INFINITY : best.top().score;
    return std::isnan(nth) ? INFINITY : CBoundEmbedding::limit(nth, 1);
  };
  // Runs work(begin, end) over groups of kLanes photos or rows, split between the threads.
  const auto inParts = [this](size_t groups, const auto& work) {
    onShares(groups < kParallelPhotos / kLanes ? 1 : threads, groups, work);
  };
  scoreAll(unbounded.data(), unbounded.size());
  // Each bounded photo's bound by position; NaN for the photos already scored.
  std::vector<float> boundAt(vectors.size(), kRankedNan);
  if (!boundable) {
    for (uint32_t position : order) boundAt[position] = 0.0f;
  } else {
    // The first parts of the bounds, by row.
    float x[kDims];
    inEntryOrder(row, x);
    inParts((order.size() + kLanes - 1) / kLanes, [&](size_t begin, size_t end) {
      float bound[kLanes * kBoundGroups];
      for (size_t g = begin; g < end; g += kBoundGroups) {
        const size_t count = std::min(kBoundGroups, end - g);
        CBoundEmbedding::laneDistances(x, &lanes[g * kLanes * kDims], count, kDims,
                                       modeOneFactors, INFINITY, bound);
        for (size_t r = g * kLanes; r < std::min(order.size(), (g + count) * kLanes); ++r) {
          boundAt[order[r]] = bound[r - g * kLanes];
        }
      }
    });
    // Plus the second parts, by position; and the (bound, position) of the lowest bounds.
    const size_t early = std::min(order.size(), std::max<size_t>(2 * n, kEarlyPhotos));
    std::vector<std::pair<float, uint32_t>> lowest;
    inParts((vectors.size() + kLanes - 1) / kLanes, [&](size_t begin, size_t end) {
      std::vector<std::pair<float, uint32_t>> mine;  // a heap, the largest first
      float bound[kLanes * kBoundGroups];
      for (size_t g = begin; g < end; g += kBoundGroups) {
        const size_t count = std::min(kBoundGroups, end - g);
        CBoundEmbedding::laneDistances(row + kDims, &meanLanes[g * kLanes * kMeanDims], count,
                                       kMeanDims, nullptr, INFINITY, bound);
        for (size_t p = g * kLanes; p < std::min(boundAt.size(), (g + count) * kLanes); ++p) {
          if (std::isnan(boundAt[p])) continue;
          boundAt[p] += bound[p - g * kLanes];
          const std::pair<float, uint32_t> item(boundAt[p], static_cast<uint32_t>(p));
          if (mine.size() == early && !(item < mine.front())) continue;
          mine.push_back(item);
          std::push_heap(mine.begin(), mine.end());
          if (mine.size() > early) {
            std::pop_heap(mine.begin(), mine.end());
            mine.pop_back();
          }
        }
      }
      std::lock_guard<std::mutex> hold(lock);
      lowest.insert(lowest.end(), mine.begin(), mine.end());
    });
    std::vector<uint32_t> batch;
    if (early > 0) std::nth_element(lowest.begin(), lowest.begin() + (early - 1), lowest.end());
    for (size_t k = 0; k < early; ++k) batch.push_back(lowest[k].second);
    for (uint32_t position : batch) boundAt[position] = kRankedNan;
    scoreAll(batch.data(), batch.size());
  }
  std::atomic<size_t> next{0};
  inParts((boundAt.size() + kLanes - 1) / kLanes, [&](size_t, size_t) {
    std::vector<uint32_t> candidates;
    for (size_t begin; (begin = next.fetch_add(kScanPhotos)) < boundAt.size();) {
      const double most = limit();
      candidates.clear();
      for (size_t p = begin; p < std::min(boundAt.size(), begin + kScanPhotos); ++p) {
        if (boundAt[p] <= most) candidates.push_back(static_cast<uint32_t>(p));
      }
      scoreAll(candidates.data(), candidates.size());
    }
  });
  std::vector<SPhotoMatch> nearest;
  for (; !best.empty(); best.pop()) nearest.push_back(best.top());
  std::reverse(nearest.begin(), nearest.end());
  return nearest;
}
