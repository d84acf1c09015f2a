#include "database/CGroupItems.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// Past two chunks' ends (of 65,536 items), through a pop, a copy and a clear.
TEST(GroupItemsTest, ItemsReadBackAcrossChunksAndCopies) {
  CGroupItems items;
  const uint32_t count = 2 * CGroupItems::kChunkItems + 3;
  for (uint32_t n = 0; n < count; ++n) items.push_back(SGroupItem(n, n + 1, n + 2, n + 3));
  items.pop_back();
  const CGroupItems copy = items;
  items.clear();
  EXPECT_TRUE(items.empty());
  ASSERT_EQ(copy.size(), count - 1u);
  for (uint32_t i : {0u, 65535u, 65536u, count - 2}) {
    const SGroupItem& item = copy[i];
    EXPECT_EQ((std::vector<uint32_t>{item.index, item.idLow, item.idHigh, item.tag}),
              (std::vector<uint32_t>{i, i + 1, i + 2, i + 3}));
  }
}

}  // namespace
