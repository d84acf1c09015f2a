#include "database/CVectorBlocks.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<float> vectorOf(float seed, uint32_t length) {
  std::vector<float> v(length);
  for (uint32_t e = 0; e < length; ++e) v[e] = seed * 1000.0f + static_cast<float>(e);
  return v;
}

std::vector<float> readBack(const CVectorBlocks& blocks, size_t position) {
  std::vector<float> v(blocks.length() + 1, -7.0f);
  blocks.read(position, v.data());
  EXPECT_EQ(v.back(), -7.0f) << "read wrote past the vector";
  v.pop_back();
  return v;
}

// Past a chunk's end, with the last vector moved into gaps, through a copy and a clear.
TEST(VectorBlocksTest, VectorsReadBackAfterAppendsMovesAndCopies) {
  CVectorBlocks blocks;
  blocks.setShape(7, 3);
  const size_t count = size_t{CVectorBlocks::kChunkBlocks} * kBlockLanes + 5;
  for (size_t i = 0; i < count; ++i) blocks.append(vectorOf(static_cast<float>(i), 7).data());
  EXPECT_EQ(blocks.blockCount(), CVectorBlocks::kChunkBlocks + 1u);
  blocks.copyLastTo(1);
  blocks.popBack();
  blocks.copyLastTo(count - 2);  // the last one onto itself
  const CVectorBlocks copy = blocks;
  EXPECT_EQ(copy.size(), count - 1);
  for (size_t i : {size_t{0}, size_t{1}, size_t{2}, size_t{17}, count - 2}) {
    EXPECT_EQ(readBack(copy, i), vectorOf(static_cast<float>(i == 1 ? count - 1 : i), 7)) << i;
  }
  // Entry 4 of vector 17: lane 1 of block 1, one entry into the means region.
  EXPECT_EQ(copy.tail(1)[kBlockLanes + 1], 17004.0f);
  blocks.clear();
  blocks.append(vectorOf(5, 7).data());
  EXPECT_EQ(readBack(blocks, 0), vectorOf(5, 7));
}

}  // namespace
