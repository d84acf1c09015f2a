#include "database/CGroupItems.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// Past two chunks' ends, through a copy, a pop and a clear.
TEST(GroupItemsTest, ItemsReadBackAcrossChunksAndCopies) {
  CGroupItems items;
  const size_t count = 2 * CGroupItems::kChunkItems + 3;
  for (size_t i = 0; i < count; ++i) {
    const auto n = static_cast<uint32_t>(i);
    items.push_back(SGroupItem(n, n + 1, n + 2, n + 3));
  }
  items.pop_back();
  const CGroupItems copy = items;
  ASSERT_EQ(copy.size(), count - 1);
  for (size_t i : {size_t{0}, CGroupItems::kChunkItems - 1, CGroupItems::kChunkItems, count - 2}) {
    SCOPED_TRACE(i);
    const SGroupItem& item = copy[i];
    EXPECT_EQ((std::vector<size_t>{item.index, item.idLow, item.idHigh, item.tag}),
              (std::vector<size_t>{i, i + 1, i + 2, i + 3}));
  }
  EXPECT_EQ(copy.back().index, count - 2);
  items.clear();
  EXPECT_TRUE(items.empty());
  EXPECT_EQ(copy.size(), count - 1);
}

}  // namespace
