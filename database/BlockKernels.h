// Block kernels of the full scan: the windowed cumulative difference (kind 0) and the mean
// absolute difference (kind 2) of kBlockLanes stored vectors against one query at once.
//
// Stored vectors lie in blocks (CVectorBlocks): entry e of the kBlockLanes vectors of a block
// stands side by side, so a kernel reads whole 64-byte lines and keeps one independent
// chain of additions per vector. A range of a vector is handed over as runs: stretches of
// entries in one region (the tiles or the means) that lie inside one window of the
// cumulative kind. The query's side is prepared once per query: for kind 0 the query's
// running sum t of each step (restarting with every window), for kind 2 the query's entry,
// both widened to double.
//
// Every lane performs the operations of the one-vector kernels of DistanceKernels.h in their
// order, in IEEE double with no fused operations, so a lane's total divided by the number of
// steps has exactly the bits of windowedCumulativeDifference or meanAbsoluteDifference. The
// portable and the AVX2 form give the same bits; the AVX2 form is used only where the
// processor has it.
#ifndef ORVANE_DATABASE_BLOCKKERNELS_H_
#define ORVANE_DATABASE_BLOCKKERNELS_H_

#include <cstddef>
#include <cstdint>

// Vectors per block: 16 floats of one entry fill one 64-byte line.
inline constexpr uint32_t kBlockLanes = 16;

// A stretch of `count` entries read from `offset` floats into the tiles region (tail false)
// or the means region (tail true) of a block. `restart` opens a window: the running sum of
// each vector starts again at 0 before the first entry.
struct SBlockRun {
  uint32_t offset;
  uint32_t count;
  bool tail;
  bool restart;
};

// totals[j] = the kind's sum over all runs for lane j: for kind 0 s += a, total += |s - t|;
// for kind 2 total += |a - b|; `query` holds t or b, one per step, in the order of the runs.
using BlockKernel = void (*)(const float* head, const float* tail, const SBlockRun* runs,
                             size_t runCount, const double* query, double* totals);

enum class ScanForm { kPortable, kAvx2 };

// kAvx2 where the processor runs it, kPortable otherwise.
ScanForm fastestScanForm();

// The kernel of kind 0 or 2 (null for any other kind) in `form`; kAvx2 falls back to the
// portable form where the processor lacks it.
BlockKernel blockKernelOf(uint32_t kind, ScanForm form);

#endif  // ORVANE_DATABASE_BLOCKKERNELS_H_
