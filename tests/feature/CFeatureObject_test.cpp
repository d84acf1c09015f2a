#include "feature/CFeatureObject.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>

#include "tests/support/ExpectVEXL.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ThrownText.h"

namespace {

// "HUE", id 2027, H_SIZE 256, one row {0.5, 1.0, 0.25}.
const char kPhotoStream[] =
    "000207eb0348554503666c7405506172616d0103696e740106485f53495a450400000100"
    "034d41540a666c740062696e0a00000001000000033f0000003f8000003e800000";

// "SFM", id 2 (default quantisers), msPerRow 30, one row {0.5, 1.0, 0.05, 0.0}.
const char kDefaultQuantStream[] =
    "000200020353464d047563687205506172616d0106737472696e6701086d73506572526f"
    "77023330034d41540a7563687262696e0a000000010000000480ff8000";

// "ASE", id 7 (no defaults), a Quant block with one linear quantiser over both columns.
const char kQuantHeader[] = "0002 0007 03 415345 04 75636872";
const char kQuantEntry[] = "0001 01 00000000 3f800000 0002 0100 00";
const char kByteMatrix[] = "03 4d41540a 75636872 62696e0a 00000002 00000002 00 80 ff 40";

Bytes QuantBlock(const char* length, size_t spare = 0) {
  return hexBytes("05 5175616e74") + hexBytes(length) + hexBytes(kQuantEntry) + Bytes(spare, 0xee);
}

template <typename T>
Bytes Write(CFeatureObject<T>& object) {
  Bytes out(object.GetStreamSize());
  EXPECT_EQ(object.WriteToStream(out.data(), static_cast<uint32_t>(out.size())), out.size());
  return out;
}

template <typename T>
uint32_t Read(CFeatureObject<T>& object, const Bytes& bytes) {
  return object.ReadFromStream(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

template <typename T>
std::vector<T> Values(const CFeatureObject<T>& object) {
  const HeapMatrix<T>& m = object.m_matrix;
  return std::vector<T>(m.m_data, m.m_data + m.m_rows * m.m_cols);
}

CFeatureObject<float> PhotoFeature() {
  CFeatureObject<float> object("HUE", 2027);
  object.SetParameter("H_SIZE", 256u);
  float row[3] = {0.5f, 1.0f, 0.25f};
  EXPECT_EQ(object.AppendVector(BaseVector<float>(row, 3)), 1u);
  return object;
}

TEST(FeatureObjectStreamTest, WritesAndReadsTheGoldenFloatStream) {
  CFeatureObject<float> object = PhotoFeature();
  EXPECT_EQ(hexText(Write(object)), hexText(hexBytes(kPhotoStream)));
  CFeatureObject<float> read;
  read.m_msPerRow = 5.0f;
  EXPECT_EQ(Read(read, hexBytes(kPhotoStream)), 69u);
  EXPECT_EQ(read.GetMsPerRow(), 30.0f) << "a stream without msPerRow gets the default";
  EXPECT_EQ(Write(read), hexBytes(kPhotoStream));
  Bytes out(68);
  EXPECT_EQ(thrownText([&] { object.WriteToStream(out.data(), 68); }),
            "CFeatureObject: stream buffer overflow");
}

TEST(FeatureObjectStreamTest, DefaultQuantisersStoreOneBytePerElement) {
  CFeatureObject<float> object("SFM", 2);
  object.m_msPerRow = 30.0f;
  float row[4] = {0.5f, 1.0f, 0.05f, 0.0f};
  object.AppendVector(BaseVector<float>(row, 4));
  object.EncodeParameters();
  EXPECT_EQ(hexText(Write(object)), hexText(hexBytes(kDefaultQuantStream)));

  CFeatureObject<float> read;
  Read(read, hexBytes(kDefaultQuantStream));
  EXPECT_EQ(read.GetMsPerRow(), 30.0f);
  EXPECT_TRUE(read.m_stringParams.empty()) << "msPerRow is taken out of the map";
  EXPECT_EQ(Values(read), (std::vector<float>{128.5f / 256, 255.5f / 256,
                                              static_cast<float>(128.5 * double{0.1f / 256}),
                                              static_cast<float>(0.5 * double{0.1f / 256})}));
  read.EncodeParameters();
  EXPECT_EQ(Write(read), hexBytes(kDefaultQuantStream));
}

TEST(FeatureObjectStreamTest, StreamQuantisersConvertAndTheBlockGoesBackOutRaw) {
  const Bytes stream = hexBytes(kQuantHeader) + QuantBlock("00000014") + hexBytes(kByteMatrix);
  CFeatureObject<float> object;
  EXPECT_EQ(Read(object, stream), stream.size());
  EXPECT_TRUE(object.m_streamQuant != nullptr && object.m_defaultQuant == nullptr);
  EXPECT_EQ(Values(object),
            (std::vector<float>{0.5f / 256, 128.5f / 256, 255.5f / 256, 64.5f / 256}));
  EXPECT_EQ(hexText(Write(object)), hexText(stream));
  // Without a block, feature id 7 has nothing to convert with.
  EXPECT_EQ(thrownText([&] { Read(object, hexBytes(kQuantHeader) + hexBytes(kByteMatrix)); }),
            "CFeatureObject: feature type conversion requieres a quantizer");
}

TEST(FeatureObjectStreamTest, AQuantBlockWithSpareBytesReadsButDoesNotFitItsCountedSize) {
  const Bytes stream =
      hexBytes(kQuantHeader) + QuantBlock("00000016", 2) + hexBytes(kByteMatrix);
  CFeatureObject<float> object;
  EXPECT_EQ(Read(object, stream), stream.size());
  EXPECT_EQ(object.GetStreamSize(), 64u) << "6 + 6 + 14 for the entry, no spare bytes";
  Bytes out(64);
  EXPECT_EQ(thrownText([&] { object.WriteToStream(out.data(), 64); }),
            "CFeatureObject: stream buffer overflow");
}

TEST(FeatureObjectStreamTest, IntegerObjectsStoreTheirOwnTypeAndKeepAQuantBlockRaw) {
  CFeatureObject<unsigned int> object("cnt", 9);
  unsigned int row[2] = {7, 0x01020304};
  object.AppendVector(BaseVector<unsigned int>(row, 2));
  EXPECT_EQ(hexText(Write(object)),
            hexText(hexBytes("0002000903636e740475696e74034d41540a75696e7462696e0a0000000100"
                             "0000020000000701020304")));
  // A byte object keeps a Quant block raw and converts nothing.
  const Bytes bytes = hexBytes("0002 0009 03 636e74 04 75636872") + QuantBlock("00000014") +
                      hexBytes("03 4d41540a 75636872 62696e0a 00000001 00000002 05 06");
  CFeatureObject<unsigned char> small;
  EXPECT_EQ(Read(small, bytes), bytes.size());
  EXPECT_EQ(Write(small), bytes);
}

TEST(FeatureObjectStreamTest, EveryVersionUpTo2IsReadAndVersion1HasFixedValueFields) {
  const Bytes head = hexBytes("0007 01 41 03 666c74 05 506172616d 01 06 737472696e67 01"
                              "08 6d7350657252 6f77");
  CFeatureObject<float> object;
  Read(object, hexBytes("0001") + head + textBytes("45") + Bytes(14, 0));
  EXPECT_EQ(object.GetMsPerRow(), 45.0f);
  for (const char* version : {"0002", "0000", "8000"}) {
    Read(object, hexBytes(version) + head + hexBytes("02 3435"));
    EXPECT_EQ(std::make_pair(object.GetMsPerRow(), object.GetName()),
              std::make_pair(45.0f, std::string("A")))
        << version;
  }
  EXPECT_EQ(thrownText([&] { Read(object, hexBytes("0003") + head + hexBytes("02 3435")); }),
            "CFeatureObject: unsupported stream version");
}

TEST(FeatureObjectStreamTest, RefusesBadStreamsWithTheLayerTexts) {
  const Bytes head = hexBytes("0002 0007 01 41 03 666c74");
  CFeatureObject<float> object;
  const struct { Bytes tail; const char* detail; } cases[] = {
      {hexBytes("04 50617261"), "unsupported sub tag in stream"},
      {hexBytes("05 5061726178 00"), "unsupported sub tag in stream"},
      {hexBytes("03 4d4158"), "unsupported sub tag in stream"},
      {hexBytes("05 506172616d 01 03 666c74 00"), "unsupported type of parameter map"},
      {hexBytes("05 5175616e74 00000099 0000"), "format error in input stream"},
      {hexBytes("05 506172616d 02 03 696e74 00"), "format error in input stream"},
      {hexBytes("05 5061"), "format error in input stream"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(hexText(c.tail));
    EXPECT_EQ(thrownText([&] { Read(object, head + c.tail); }),
              std::string("CFeatureObject: ") + c.detail);
  }
  CFeatureObject<unsigned int> numbers;
  EXPECT_EQ(thrownText([&] { Read(numbers, hexBytes(kPhotoStream)); }),
            "CFeatureObject: feature type mismatch");
  EXPECT_EQ(thrownText([&] { Read(object, hexBytes("0002 0007 01 41 04 75696e74")); }), "")
      << "the stored type is only checked against a matrix";
}

TEST(FeatureObjectStreamTest, EmptyQuantisedMatrixWritesFloatWordUnderByteType) {
  CFeatureObject<float> object("SFM", 2);
  float row[2] = {0.1f, 0.2f};
  object.AppendVector(BaseVector<float>(row, 2));
  object.GetStreamSize();  // builds the default quantisers
  object.m_matrix.RemoveFrontRows(1);
  const Bytes stream = Write(object);
  EXPECT_EQ(hexText(stream), hexText(hexBytes("000200020353464d0475636872034d41540a666c7400"
                                              "62696e0a0000000000000002")));
  CFeatureObject<float> read;
  ExpectVEXL([&] { Read(read, stream); }, "unsupported type conversion", "vexl/type_info", 199);
}

TEST(FeatureObjectTest, ExcerptRoundsToRowsAndKeepsAtLeastOne) {
  CFeatureObject<unsigned char> source("X", 1);
  source.m_msPerRow = 30.0f;
  for (unsigned char r = 0; r < 10; ++r) {
    unsigned char row[2] = {r, static_cast<unsigned char>(r + 100)};
    source.AppendVector(BaseVector<unsigned char>(row, 2));
  }
  const struct { uint32_t skip, duration, rows; unsigned char first; } cases[] = {
      {1, 0, 10, 0},    {15, 0, 9, 1},  {14, 0, 10, 0},
      {0, 10, 1, 0},    {280, 100, 1, 9}, {30, 60, 2, 1}};
  for (const auto& c : cases) {
    std::unique_ptr<CFeatureObjectBase> excerpt(source.CreateExcerpt(c.skip, c.duration));
    const auto& m = dynamic_cast<CFeatureObject<unsigned char>&>(*excerpt).m_matrix;
    EXPECT_EQ(std::make_tuple(m.m_rows, m.m_data[0], m.m_data[1]),
              std::make_tuple(c.rows, c.first, c.first + 100))
        << c.skip << " " << c.duration;
  }
  EXPECT_EQ(thrownText([&] { delete source.CreateExcerpt(300, 0); }),
            "CFeatureObject: not enough data to create excerpt (skip)");
  source.m_msPerRow = 0.5f;  // rows shorter than a millisecond are refused
  EXPECT_EQ(thrownText([&] { delete source.CreateExcerpt(1, 0); }),
            "CFeatureObject: not enough data to create excerpt (skip)");
}

// A text value reads as a number; each map is looked up only for its own type.
TEST(FeatureObjectTest, ParametersLookWhereTheirTypeSays) {
  CFeatureObject<float> object;
  object.SetParameter("n", std::string("42abc"));
  object.SetParameter("u", 7u);
  uint32_t u = 0;
  float f = 0;
  EXPECT_TRUE(object.GetParameter(&u, "n", true) && u == 42u);
  EXPECT_FALSE(object.GetParameter(&f, "u", false) || object.GetParameter(&u, "n", false));
}

}  // namespace
