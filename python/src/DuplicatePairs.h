// The pairs of stored photos that count as the same photo, for a whole exported database at
// once, through the search engine: exact, with the scores of classify in mode 0, without a
// classify per photo.
#ifndef ORVANE_PYTHON_SRC_DUPLICATEPAIRS_H_
#define ORVANE_PYTHON_SRC_DUPLICATEPAIRS_H_

#include <orvane.h>

#include <tuple>
#include <vector>

// (id of the earlier stored photo, id of the later one, score) for every pair of stored
// photos with a mode-0 score at most 0.07, by position of the first, then of the second.
// The database's photos reach the engine through its own stream (save), so the answer is
// that of the photos as stored, in their order. Scores are those of a new database's
// weights. Runs on `threads` threads. Failures of the save are FID_Exception.
// REQUIRES: threads > 0.
std::vector<std::tuple<int, int, float>> duplicatePairs(CFIDDatabase& database, unsigned threads);

// (id in `queries`, id in `stored`, score) for every photo of `queries` and photo of `stored`
// with a mode-0 score at most 0.07, the first scored as classify's query against the second
// stored in a new database; by position in `queries`, then in `stored`.
// REQUIRES: threads > 0.
std::vector<std::tuple<int, int, float>> duplicatePairs(CFIDDatabase& queries,
                                                        CFIDDatabase& stored, unsigned threads);

#endif  // ORVANE_PYTHON_SRC_DUPLICATEPAIRS_H_
