#include "feature/QuantBlock.h"

#include <gtest/gtest.h>

#include "tests/support/HexBytes.h"
#include "tests/support/ThrownText.h"

namespace {

// One quantiser of each type: linear 0..1 over 2 columns, logarithmic -9..-1 with exactMin
// over 1, sine-squared 0..1 with 16 levels over 1, polynomial 0..10 with slopes 1 and 1 over 1.
const char kBlock[] =
    "00000046 0004"
    "01 00000000 3f800000 0002 0100 00"
    "02 c1100000 bf800000 0001 0100 01"
    "03 00000000 3f800000 0001 0010 00"
    "04 00000000 41200000 0001 0100 00 3f800000 3f800000";

uint32_t Parse(const Bytes& block, CQuantModule<float>* module) {
  return ParseQuantBlock(block.data(), static_cast<uint32_t>(block.size()), module);
}

TEST(QuantBlockTest, ParsesEveryQuantiserTypeOfTheGoldenBlock) {
  CQuantModule<float> module(5);
  ASSERT_EQ(Parse(hexBytes(kBlock) + hexBytes("ffff"), &module), 70u);
  ASSERT_EQ(module.GetQuantizerCount(), 4u);
  EXPECT_EQ(module.GetTotalColumns(), 5u);
  for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(module.GetQuantizerType(i), static_cast<int>(i + 1));
  // Each quantiser's settings show in its byte.
  float row[5] = {0.5f, 1.0f, 1e-5f, 0.5f, 5.0f};
  const HeapVector<unsigned char>& bytes = module.QuantizeRow(BaseVector<float>(row, 5));
  EXPECT_EQ(hexText(Bytes(bytes.m_data, bytes.m_data + 5)), hexText(hexBytes("80ff7f0780")));
}

TEST(QuantBlockTest, EmptyBlockAndFailures) {
  CQuantModule<float> module(3);
  EXPECT_EQ(Parse(hexBytes("00000006 0000"), &module), 6u);
  EXPECT_EQ(module.GetQuantizerCount(), 0u);
  const Bytes unknown = hexBytes("00000014000105000000003f8000000001010000");
  EXPECT_EQ(thrownText([&] { Parse(unknown, &module); }),
            "CFeatureObject: unknown type of quantizer found");
  EXPECT_THROW(Parse(hexBytes("00000014 0001 01 00000000 3f800000 0001 0000 00"), &module), int);
  const Bytes block = hexBytes(kBlock);
  for (size_t n = 0; n < block.size(); ++n) {
    CQuantModule<float> cut(5);
    EXPECT_EQ(thrownText([&] { Parse(Bytes(block.begin(), block.begin() + n), &cut); }),
              "CFeatureObject: format error in input stream")
        << n;
  }
}

TEST(CQuantModuleTest, RowsLeaveUncoveredColumnsAndNeverPassTheirBuffers) {
  CQuantModule<float> module(5);
  module.AddQuantizer(new CQuant(0.0f, 1.0f, 256, false), 2);
  module.AddQuantizer(new CQuant_log(-9.0f, -1.0f, 256, false), 2);  // its own loop
  float row[5] = {0.5f, 1.0f, 0.05f, 0.0f, 0.7f};
  const HeapVector<unsigned char>& bytes = module.QuantizeRow(BaseVector<float>(row, 5));
  EXPECT_EQ(hexText(Bytes(bytes.m_data, bytes.m_data + 5)), hexText(hexBytes("80fff60000")));
  bytes.m_data[4] = 0x77;
  module.QuantizeRow(BaseVector<float>(row, 5));
  EXPECT_EQ(bytes.m_data[4], 0x77) << "the fifth byte is left as it was";

  // Column counts that promise more than the row or the module has are cut at the end.
  CQuantModule<float> wide(2);
  wide.AddQuantizer(new CQuant(0.0f, 1.0f, 4, false), 60000);
  const HeapVector<unsigned char>& two = wide.QuantizeRow(BaseVector<float>(row, 5));
  EXPECT_EQ(two.m_size, 2u);
  unsigned char in[1] = {3};
  const HeapVector<float>& values = wide.DequantizeRow(BaseVector<unsigned char>(in, 1));
  EXPECT_EQ(values.m_data[0], 0.875f);
}

}  // namespace
