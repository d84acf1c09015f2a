#include "database/CVectorBlocks.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>

namespace {

// Blocks start on a line: a block's entry is then exactly one line.
constexpr std::align_val_t kLineAlignment{64};

// Maps the whole pages of [from, from + bytes) writable at once. Without the call, or on a
// system that refuses it, each page faults in on its first write instead, as it would anyway.
void populate(float* from, size_t bytes) {
#if defined(MADV_POPULATE_WRITE)
  static const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(from) + page - 1) / page * page;
  const uintptr_t end = (reinterpret_cast<uintptr_t>(from) + bytes) / page * page;
  if (begin < end) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE);
#else
  (void)from;
  (void)bytes;
#endif
}

}  // namespace

void CVectorBlocks::SAlignedFree::operator()(float* p) const {
  ::operator delete[](p, kLineAlignment);
}

CVectorBlocks::CVectorBlocks(const CVectorBlocks& other)
    : vectorLength(other.vectorLength), tileEntries(other.tileEntries) {
  const size_t headFloats = size_t{tileEntries} * kBlockLanes;
  const size_t tailFloats = size_t{vectorLength - tileEntries} * kBlockLanes;
  for (size_t block = 0; block < other.blockCount(); ++block) {
    provide(block);
    std::copy_n(other.headOf(block), headFloats, headOf(block));
    std::copy_n(other.tailOf(block), tailFloats, tailOf(block));
  }
  count = other.count;
}

CVectorBlocks& CVectorBlocks::operator=(const CVectorBlocks& other) {
  if (this != &other) *this = CVectorBlocks(other);
  return *this;
}

void CVectorBlocks::provide(size_t block) {
  if (block / kChunkBlocks < chunks.size()) return;
  // Left unwritten: pages that no step of blocks reaches yet take no memory.
  const size_t floats = size_t{kChunkBlocks} * vectorLength * kBlockLanes;
  std::unique_ptr<float[], SAlignedFree> chunk(
      static_cast<float*>(::operator new[](floats * sizeof(float), kLineAlignment)));
  chunks.push_back(std::move(chunk));
}

void CVectorBlocks::setShape(uint32_t length, uint32_t split) {
  clear();
  vectorLength = length;
  tileEntries = split;
}

float* CVectorBlocks::headOf(size_t block) const {
  return chunks[block / kChunkBlocks].get() +
         block % kChunkBlocks * tileEntries * size_t{kBlockLanes};
}

float* CVectorBlocks::tailOf(size_t block) const {
  return chunks[block / kChunkBlocks].get() +
         size_t{kChunkBlocks} * tileEntries * kBlockLanes +
         block % kChunkBlocks * (vectorLength - tileEntries) * size_t{kBlockLanes};
}

const float* CVectorBlocks::head(size_t block) const { return headOf(block); }
const float* CVectorBlocks::tail(size_t block) const { return tailOf(block); }

void CVectorBlocks::append(const float* vector) {
  const size_t block = count / kBlockLanes;
  const size_t lane = count % kBlockLanes;
  const size_t tailEntries = vectorLength - tileEntries;
  if (lane == 0) {
    provide(block);
    // One call maps the pages of a step of blocks, cheaper than a fault per page on their
    // first writes. The blocks of a step lie in one chunk.
    if (block % kPopulateBlocks == 0) {
      populate(headOf(block), size_t{kPopulateBlocks} * tileEntries * kBlockLanes * sizeof(float));
      populate(tailOf(block), size_t{kPopulateBlocks} * tailEntries * kBlockLanes * sizeof(float));
    }
    std::fill_n(headOf(block), tileEntries * size_t{kBlockLanes}, 0.0f);
    std::fill_n(tailOf(block), tailEntries * kBlockLanes, 0.0f);
  }
  float* head = headOf(block) + lane;
  for (uint32_t e = 0; e < tileEntries; ++e) head[e * size_t{kBlockLanes}] = vector[e];
  float* tail = tailOf(block) + lane;
  for (size_t e = 0; e < tailEntries; ++e) tail[e * kBlockLanes] = vector[tileEntries + e];
  ++count;
}

void CVectorBlocks::copyLastTo(size_t position) {
  const size_t last = count - 1;
  const size_t tailEntries = vectorLength - tileEntries;
  const float* fromHead = headOf(last / kBlockLanes) + last % kBlockLanes;
  float* toHead = headOf(position / kBlockLanes) + position % kBlockLanes;
  for (size_t e = 0; e < tileEntries; ++e) toHead[e * kBlockLanes] = fromHead[e * kBlockLanes];
  const float* fromTail = tailOf(last / kBlockLanes) + last % kBlockLanes;
  float* toTail = tailOf(position / kBlockLanes) + position % kBlockLanes;
  for (size_t e = 0; e < tailEntries; ++e) toTail[e * kBlockLanes] = fromTail[e * kBlockLanes];
}

void CVectorBlocks::clear() {
  chunks.clear();
  count = 0;
}

void CVectorBlocks::read(size_t position, float* out) const {
  const float* head = headOf(position / kBlockLanes) + position % kBlockLanes;
  for (uint32_t e = 0; e < tileEntries; ++e) out[e] = head[e * size_t{kBlockLanes}];
  const float* tail = tailOf(position / kBlockLanes) + position % kBlockLanes;
  for (uint32_t e = tileEntries; e < vectorLength; ++e) {
    out[e] = tail[(e - tileEntries) * size_t{kBlockLanes}];
  }
}
