#include "feature/ParameterMap.h"

#include <gtest/gtest.h>

#include "tests/support/HexBytes.h"

namespace {

// {"uf": 4000} and {"msPerRow": "30", "x": ""} in the written form.
const char kUintMap[] = "03 696e74 01  02 7566 04 00000fa0";
const char kTextMap[] = "06 737472696e67 02  08 6d7350657252 6f77 02 3330  01 78 00";

template <typename T>
uint32_t Read(ParameterMap<T>& map, const Bytes& bytes, int version) {
  return map.ReadFromStream(bytes.data(), static_cast<uint32_t>(bytes.size()), version);
}

template <typename T>
Bytes Write(const ParameterMap<T>& map) {
  Bytes out(map.GetStreamSize());
  EXPECT_EQ(map.WriteToStream(out.data()), out.size());
  return out;
}

TEST(ParameterMapTest, WritesGoldenInKeyOrderAndReadsItBack) {
  ParameterMap<unsigned int> numbers;
  numbers.Set("uf", 1);
  numbers.Set("uf", 4000);  // a later value replaces an earlier one
  EXPECT_EQ(hexText(Write(numbers)), hexText(hexBytes(kUintMap)));
  ParameterMap<std::string> texts;
  texts.Set("x", "");
  texts.Set("msPerRow", "30");
  EXPECT_EQ(hexText(Write(texts)), hexText(hexBytes(kTextMap)));

  ASSERT_EQ(Read(numbers, hexBytes(kUintMap) + hexBytes("ffff"), 2), 13u);
  EXPECT_EQ(Write(numbers), hexBytes(kUintMap));
  ASSERT_EQ(Read(texts, hexBytes(kTextMap), 2), 23u);
  EXPECT_EQ(Write(texts), hexBytes(kTextMap));
  // Version 1: fixed 4-byte numbers (and 16-byte texts), no length bytes.
  ASSERT_EQ(Read(numbers, hexBytes("03 696e74 01 02 6c66 000000fa"), 1), 12u);
  EXPECT_EQ(numbers["lf"], 250u);
  EXPECT_EQ(numbers.count("uf"), 0u) << "reading replaces the whole map";
}

TEST(ParameterMapTest, ReadingQuirks) {
  ParameterMap<unsigned int> numbers;
  numbers.Set("old", 1);
  EXPECT_EQ(Read(numbers, hexBytes(kTextMap), 2), 0u);  // another map's type word: nothing changes
  EXPECT_EQ(Read(numbers, hexBytes("03 696e75 00"), 2), 0u);
  EXPECT_EQ(numbers.size(), 1u);
  // A count of 0 empties the map and consumes the type word and two bytes.
  EXPECT_EQ(Read(numbers, hexBytes("03 696e74 00 ff"), 2), 5u);
  EXPECT_TRUE(numbers.empty());
  // A number is its first four bytes; the cursor moves by the length byte. First key stays.
  EXPECT_EQ(Read(numbers, hexBytes("03696e74 02 0161 06 00000007ffff 0161 04 00000009"), 2),
            21u);
  EXPECT_EQ(numbers["a"], 7u);
  EXPECT_EQ(numbers.size(), 1u);
}

}  // namespace
