// CVectorBlocks: the stored vectors of one feature group, laid out for the full scan.
//
// All vectors have one length. They go in blocks of kBlockLanes: inside a block, entry e of
// its vectors stands side by side, so that a scan reads whole lines and scores a block's
// vectors together (BlockKernels.h). Every vector is cut at `split`, its tile count: the
// entries before it lie in the block's tiles region, the others in its means region, and
// the two regions of all blocks of a chunk lie in two separate runs of memory, so a scan
// of the tiles alone reads nothing else.
//
// Blocks are allocated in chunks of kChunkBlocks that never move: adding a vector costs
// the same at any size of the store, and an empty store holds no memory. The pages of a
// chunk are mapped kPopulateBlocks blocks at a time, when the first of them is reached.
// Lanes of the last block beyond size() hold zeros or old vectors, never undefined bytes.
#ifndef ORVANE_DATABASE_CVECTORBLOCKS_H_
#define ORVANE_DATABASE_CVECTORBLOCKS_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "database/BlockKernels.h"

class CVectorBlocks {
 public:
  static constexpr uint32_t kChunkBlocks = 256;
  // Blocks whose memory is asked for at once, ahead of their vectors.
  static constexpr uint32_t kPopulateBlocks = 64;

  CVectorBlocks() = default;
  // Copies hold their own blocks, of the vectors only.
  CVectorBlocks(const CVectorBlocks& other);
  CVectorBlocks& operator=(const CVectorBlocks& other);
  CVectorBlocks(CVectorBlocks&&) noexcept = default;
  CVectorBlocks& operator=(CVectorBlocks&&) noexcept = default;

  // Empties the store and sets the vector length and the entries of the tiles region.
  // REQUIRES: split <= length.
  void setShape(uint32_t length, uint32_t split);

  uint32_t length() const { return vectorLength; }
  uint32_t split() const { return tileEntries; }
  size_t size() const { return count; }
  size_t blockCount() const { return (count + kBlockLanes - 1) / kBlockLanes; }

  // Appends a vector of length() floats.
  void append(const float* vector);
  // Copies the last vector over the one at `position`.
  // REQUIRES: position < size().
  void copyLastTo(size_t position);
  // Drops the last vector.
  // REQUIRES: size() > 0.
  void popBack() { --count; }
  // Drops every vector and releases the memory.
  void clear();

  // Writes the vector at `position` to out[0 .. length()).
  void read(size_t position, float* out) const;

  // The tiles region and the means region of a block.
  const float* head(size_t block) const;
  const float* tail(size_t block) const;

 private:
  struct SAlignedFree {
    void operator()(float* p) const;
  };

  // Makes sure the chunk of `block` exists.
  void provide(size_t block);
  float* headOf(size_t block) const;
  float* tailOf(size_t block) const;

  uint32_t vectorLength = 0;
  uint32_t tileEntries = 0;
  size_t count = 0;
  // Each chunk: kChunkBlocks tiles regions, then kChunkBlocks means regions.
  std::vector<std::unique_ptr<float[], SAlignedFree>> chunks;
};

#endif  // ORVANE_DATABASE_CVECTORBLOCKS_H_
