#include "feature/CFeatureObject.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <tuple>

#include "feature/FeatureObjException.h"
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
  EXPECT_EQ(read.GetFeatureId(), 2027);
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

  // A second block replaces the first.
  const Bytes twice = hexBytes(kQuantHeader) + hexBytes("05 5175616e74 00000006 0000") +
                      QuantBlock("00000014") + hexBytes(kByteMatrix);
  EXPECT_EQ(Read(object, twice), twice.size());
  EXPECT_EQ(object.m_matrix.m_data[3], 64.5f / 256);
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
  const Bytes bytes = hexBytes("0002 0009 03 636e74 04 75636872") + QuantBlock("00000014") +
                      hexBytes("03 4d41540a 75636872 62696e0a 00000001 00000002 05 06");
  CFeatureObject<unsigned char> small;
  EXPECT_EQ(Read(small, bytes), bytes.size());
  EXPECT_EQ(small.m_matrix.m_data[1], 6) << "no conversion";
  EXPECT_EQ(Write(small), bytes);
}

TEST(FeatureObjectStreamTest, EveryVersionUpTo2IsReadAndVersion1HasFixedValueFields) {
  const Bytes head = hexBytes("0007 01 41 03 666c74 05 506172616d 01 06 737472696e67 01"
                              "08 6d7350657252 6f77");
  CFeatureObject<float> object;
  Read(object, hexBytes("0001") + head + textBytes("45") + Bytes(14, 0));
  EXPECT_EQ(object.GetMsPerRow(), 45.0f);
  for (const char* version : {"0002", "0000", "8000"}) {
    SCOPED_TRACE(version);
    Read(object, hexBytes(version) + head + hexBytes("02 3435"));
    EXPECT_EQ(object.GetMsPerRow(), 45.0f);
    EXPECT_EQ(object.GetName(), "A");
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
  source.SetParameter("lf", 250u);
  for (unsigned char r = 0; r < 10; ++r) {
    unsigned char row[2] = {r, static_cast<unsigned char>(r + 100)};
    source.AppendVector(BaseVector<unsigned char>(row, 2));
  }
  const struct { uint32_t skip, duration, rows; unsigned char first; } cases[] = {
      {1, 0, 10, 0},    {15, 0, 9, 1},    {14, 0, 10, 0},  {0, 10, 1, 0},
      {280, 100, 1, 9}, {30, 60, 2, 1},   {0, 1000, 10, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.skip << " " << c.duration);
    std::unique_ptr<CFeatureObjectBase> excerpt(source.CreateExcerpt(c.skip, c.duration));
    auto& typed = dynamic_cast<CFeatureObject<unsigned char>&>(*excerpt);
    EXPECT_EQ(std::make_tuple(typed.m_matrix.m_rows, typed.m_matrix.m_data[0],
                              typed.m_matrix.m_data[1], typed.m_uintParams.at("lf")),
              std::make_tuple(c.rows, c.first, c.first + 100, 250u));
  }
  EXPECT_EQ(thrownText([&] { delete source.CreateExcerpt(300, 0); }),
            "CFeatureObject: not enough data to create excerpt (skip)");
  source.m_msPerRow = 0.5f;  // rows shorter than a millisecond are refused
  EXPECT_EQ(thrownText([&] { delete source.CreateExcerpt(1, 0); }),
            "CFeatureObject: not enough data to create excerpt (skip)");
  std::unique_ptr<CFeatureObjectBase> copy(source.CreateExcerpt(0, 0));
  SMatrixInfo info;
  EXPECT_EQ(copy->GetMatrixInfo(info).m_rows, 10u);
  EXPECT_NE(info.m_data, source.m_matrix.m_data);
}

TEST(FeatureObjectTest, RemoveFrontDropsWholeRows) {
  CFeatureObject<float> object = PhotoFeature();
  EXPECT_EQ(object.RemoveFront(100), 0u) << "no msPerRow set";
  object.AppendMatrixRows(object.m_matrix);
  object.AppendMatrixRows(object.m_matrix);
  object.m_msPerRow = 30.0f;
  EXPECT_EQ(object.GetDuration(), 120);
  EXPECT_EQ(object.RemoveFront(29), 0u);
  EXPECT_EQ(object.RemoveFront(65), 60u);
  EXPECT_EQ(object.m_matrix.m_rows, 2u);
  ExpectVEXL([&] { object.RemoveFront(90); }, "excerpt is too long", "vexl/heap_matrix", 643);
  object.ClearMatrix();
  EXPECT_EQ(object.IsEmpty(), 1);
}

TEST(FeatureObjectTest, AppendNeedsTheSameSettings) {
  CFeatureObject<float> empty("HUE", 2027);
  CFeatureObject<float> photo = PhotoFeature();
  EXPECT_EQ(empty.Append(&photo), 1u);
  EXPECT_EQ(empty.m_matrix.m_cols, 3u) << "an empty object takes the other's columns";
  photo.m_msPerRow = 30.0f;
  CFeatureObject<unsigned int> other;
  for (const CFeatureObjectBase* bad : {static_cast<const CFeatureObjectBase*>(&photo),
                                        static_cast<const CFeatureObjectBase*>(&other)}) {
    EXPECT_EQ(thrownText([&] { empty.Append(bad); }),
              "CFeatureObject: different settings, cannot append feature object");
  }
  // Written without msPerRow, read back with the default: no longer the same settings.
  CFeatureObject<float> fresh = PhotoFeature(), read;
  Read(read, Write(fresh));
  EXPECT_FALSE(read.HasSameSettings(&fresh));
  EXPECT_EQ(read.GetDuration(), 30);
}

TEST(FeatureObjectTest, ParametersLookWhereTheirTypeSays) {
  CFeatureObject<float> object;
  object.SetParameter("n", std::string("42abc"));
  object.SetParameter("u", 7u);
  object.SetParameter("f", 0.1f);
  uint32_t u = 0;
  float f = 0;
  std::string text;
  EXPECT_TRUE(object.GetParameter(&u, "n", false) && u == 42u);
  EXPECT_FALSE(object.GetParameter(&f, "u", false) || object.GetParameter(&text, "u", false));
  EXPECT_TRUE(object.GetParameter(&text, "f", true) && text == "0.1");
  EXPECT_FALSE(object.GetParameter(&text, "f", false)) << "removed";
  EXPECT_TRUE(object.GetParameter(&u, "u", true) && u == 7u);
  EXPECT_TRUE(object.m_uintParams.empty());
  object.m_msPerRow = 22.5f;
  std::ostringstream out;
  object.PrintParameters(out);
  EXPECT_EQ(out.str(), "Parameter map <string>:\n\tmsPerRow\t = 22.5\n\tn\t = 42abc\n");
}

}  // namespace
