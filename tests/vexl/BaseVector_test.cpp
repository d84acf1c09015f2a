#include "vexl/base_vector.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "tests/support/ExpectVEXL.h"

namespace {

TEST(BaseVectorTest, AssignCopiesEqualSizesAndToleratesOverlap) {
  float data[5] = {1, 2, 3, 4, 5};
  BaseVector<float> front(data, 4);
  front.Assign(BaseVector<float>(data + 1, 4));
  front.Assign(front);
  EXPECT_EQ(std::vector<float>(data, data + 5), (std::vector<float>{2, 3, 4, 5, 5}));
  ExpectVEXL([&] { front.Assign(BaseVector<float>(data, 3)); }, "unequal vector size",
             "vexl/base_vector", 381);
}

TEST(HeapVectorTest, CopiesAreDeep) {
  HeapVector<unsigned char> v(3);
  v.m_data[2] = 9;
  const HeapVector<unsigned char> copy = v;
  EXPECT_NE(copy.m_data, v.m_data);
  EXPECT_EQ(std::make_tuple(copy.m_size, int{copy.m_data[2]}), std::make_tuple(3u, 9));
}

}  // namespace
