#include "vexl/base_vector.h"

#include <gtest/gtest.h>

#include "tests/support/ExpectVEXL.h"

namespace {

TEST(BaseVectorTest, AssignCopiesEqualSizesAndToleratesOverlap) {
  float data[5] = {1, 2, 3, 4, 5};
  BaseVector<float> front(data, 4);
  front.Assign(BaseVector<float>(data + 1, 4));
  EXPECT_EQ(data[0], 2.0f);
  EXPECT_EQ(data[3], 5.0f);
  front.Assign(front);
  ExpectVEXL([&] { front.Assign(BaseVector<float>(data, 3)); }, "unequal vector size",
             "vexl/base_vector", 381);
}

TEST(HeapVectorTest, ResizeReallocatesOnlyWhenGrowingAndCopiesAreDeep) {
  HeapVector<unsigned char> v(4);
  unsigned char* storage = v.m_data;
  v.Resize(2);
  EXPECT_EQ(v.m_data, storage);
  EXPECT_EQ(v.m_size, 2u);
  v.Resize(3);
  EXPECT_EQ(v.m_size, 3u);
  v.m_data[2] = 9;
  const HeapVector<unsigned char> copy = v;
  EXPECT_NE(copy.m_data, v.m_data);
  EXPECT_EQ(copy.m_data[2], 9);
}

}  // namespace
