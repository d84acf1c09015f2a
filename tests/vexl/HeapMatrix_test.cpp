#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/ExpectVEXL.h"
#include "tests/support/HexBytes.h"
#include "vexl/heap_matrix.h"

namespace {

const char kFloatMat[] =
    "4d41540a 666c7400 62696e0a 00000002 00000002 3f800000 c0000000 3f000000 40400000";
const char kByteMat[] = "4d41540a 75636872 62696e0a 00000001 00000003 01 02 ff";
const char kUintMat[] = "4d41540a 75696e74 62696e0a 00000001 00000002 00000001 deadbeef";

template <typename T>
HeapMatrix<T> MatrixOf(uint32_t rows, uint32_t cols, std::vector<T> values) {
  HeapMatrix<T> m(rows, cols);
  std::copy(values.begin(), values.end(), m.m_data);
  return m;
}

template <typename T>
Bytes Write(const BaseMatrix<T>& m) {
  Bytes out(m.StreamBytes());
  EXPECT_EQ(m.WriteToBuffer(out.data(), static_cast<uint32_t>(out.size()), "bin"), out.size());
  return out;
}

template <typename T>
HeapMatrix<T> Read(const Bytes& bytes) {
  HeapMatrix<T> m;
  EXPECT_EQ(m.ReadFromBuffer(bytes.data(), static_cast<uint32_t>(bytes.size())), bytes.size());
  return m;
}

TEST(MatStreamTest, WritesGoldenBinaryForEveryElementType) {
  EXPECT_EQ(hexText(Write(MatrixOf<float>(2, 2, {1.0f, -2.0f, 0.5f, 3.0f}))),
            hexText(hexBytes(kFloatMat)));
  EXPECT_EQ(hexText(Write(MatrixOf<unsigned char>(1, 3, {1, 2, 255}))),
            hexText(hexBytes(kByteMat)));
  EXPECT_EQ(hexText(Write(MatrixOf<unsigned int>(1, 2, {1u, 0xdeadbeefu}))),
            hexText(hexBytes(kUintMat)));
  EXPECT_EQ(hexText(Write(HeapMatrix<float>())),
            hexText(hexBytes("4d41540a666c740062696e0a0000000000000000")));
}

TEST(MatStreamTest, ReadsGoldenBinaryAndWritesTheSameBytes) {
  const HeapMatrix<float> f = Read<float>(hexBytes(kFloatMat));
  ASSERT_EQ(f.m_rows, 2u);
  ASSERT_EQ(f.m_cols, 2u);
  EXPECT_EQ(f.m_data[1], -2.0f);
  EXPECT_EQ(f.m_data[3], 3.0f);
  EXPECT_EQ(Write(f), hexBytes(kFloatMat));
  EXPECT_EQ(Write(Read<unsigned char>(hexBytes(kByteMat))), hexBytes(kByteMat));
  const HeapMatrix<unsigned int> u = Read<unsigned int>(hexBytes(kUintMat));
  EXPECT_EQ(u.m_data[1], 0xdeadbeefu);
  EXPECT_EQ(Write(u), hexBytes(kUintMat));
}

TEST(MatStreamTest, AcceptsEveryTypeWordOfTheTableAndIgnoresTheFourthMagicByte) {
  Bytes fil = hexBytes(kFloatMat);
  std::memcpy(fil.data() + 4, "filX", 4);
  fil[3] = '?';
  EXPECT_EQ(Read<float>(fil).m_data[0], 1.0f);
  Bytes chr = hexBytes(kByteMat);
  std::memcpy(chr.data() + 4, "char", 4);
  EXPECT_EQ(Read<unsigned char>(chr).m_data[2], 255);
  Bytes intWord = hexBytes(kUintMat);
  for (const char* word : {"int\x01", "uint"}) {
    SCOPED_TRACE(word);
    std::memcpy(intWord.data() + 4, word, 4);
    EXPECT_EQ(Read<unsigned int>(intWord).m_data[0], 1u);
  }
}

TEST(MatStreamTest, RefusesBadBinaryWithTheTableFailures) {
  const std::string hm = "vexl/heap_matrix";
  const Bytes good = hexBytes(kFloatMat);
  HeapMatrix<float> m;
  auto read = [&m](Bytes bytes) {
    return [&m, bytes] { m.ReadFromBuffer(bytes.data(), static_cast<uint32_t>(bytes.size())); };
  };
  ExpectVEXL(read(Bytes(good.begin(), good.begin() + 19)), "no matrix in buffer", hm, 499);
  ExpectVEXL(read(textBytes("MAX\nflt bin\n") + Bytes(8, 0)), "file is not an VEXL matrix", hm,
             503);
  Bytes format = good;
  format[8] = 'x';
  ExpectVEXL(read(format), "unhandled matrix data format", hm, 576);
  ExpectVEXL(read(good + Bytes{0}), "too few elements in buffer", hm, 561);
  ExpectVEXL(read(Bytes(good.begin(), good.end() - 1)), "too few elements in buffer", hm, 561);
  // Rows and columns whose product wraps to 0 in 32 bits.
  ExpectVEXL(read(hexBytes("4d41540a 666c7400 62696e0a 00010000 00010000")),
             "too few elements in buffer", hm, 561);

  Bytes byteWord = good;
  std::memcpy(byteWord.data() + 4, "uchr", 4);
  ExpectVEXL(read(byteWord), "unsupported type conversion", "vexl/type_info", 181);
  EXPECT_EQ(m.m_rows, 2u) << "the new shape is taken before the type word is checked";
  HeapMatrix<unsigned char> b;
  const Bytes floatWordForBytes = hexBytes("4d41540a 666c7400 62696e0a 00000000 00000000");
  ExpectVEXL([&] { b.ReadFromBuffer(floatWordForBytes.data(), 20); }, "unsupported type conversion",
             "vexl/type_info", 199);
  HeapMatrix<unsigned int> u;
  const Bytes shortWord = hexBytes("4d41540a 75696e00 62696e0a 00000000 00000000");
  ExpectVEXL([&] { u.ReadFromBuffer(shortWord.data(), 20); }, "unsupported type conversion",
             "vexl/type_info", 217);
}

TEST(MatStreamTest, EveryTruncatedPrefixFailsCleanly) {
  const Bytes good = hexBytes(kUintMat);
  for (size_t n = 0; n < good.size(); ++n) {
    SCOPED_TRACE(n);
    const Bytes prefix(good.begin(), good.begin() + n);  // exact size: ASan sees any overread
    HeapMatrix<unsigned int> m;
    EXPECT_THROW(m.ReadFromBuffer(prefix.data(), static_cast<uint32_t>(n)), VEXLException);
  }
}

TEST(MatStreamTest, WriteFailuresComeInTheirOrder) {
  const HeapMatrix<float> m = MatrixOf<float>(1, 2, {1.0f, 2.0f});
  const std::string bm = "vexl/base_matrix";
  ExpectVEXL([&] { m.WriteToBuffer(nullptr, 27, "bin"); }, "buffer too small", bm, 587);
  ExpectVEXL([&] { m.WriteToBuffer(nullptr, 28, "bin"); }, "invalid buffer pointer", bm, 588);
  Bytes out(40, 0xee);
  ExpectVEXL([&] { m.WriteToBuffer(out.data(), 40, "txt"); },
             "Not implemented: Write matrix in txt-format into buffer", "", 0);
  ExpectVEXL([&] { m.WriteToBuffer(out.data(), 40, "bi"); }, "unhandled mode (neither txt nor bin)",
             bm, 659);
  // The whole buffer is cleared before the mode is looked at.
  EXPECT_EQ(hexText(out), hexText(hexBytes("4d41540a666c7400" + std::string(64, '0'))));
  out.assign(40, 0xee);
  EXPECT_EQ(m.WriteToBuffer(out.data(), 40, "binary"), 28u);
  EXPECT_EQ(hexText(Bytes(out.begin() + 28, out.end())), hexText(Bytes(12, 0)));
}

TEST(MatTextTest, ReadsRowsAndReturnsThePositionBehindTheLastLineFeed) {
  const Bytes text = textBytes("MAT\n????txt\n2\n3\n1.5 -2 3e1\n4 5 6\nrest");
  HeapMatrix<float> f;
  EXPECT_EQ(f.ReadFromBuffer(text.data(), static_cast<uint32_t>(text.size())), text.size() - 4);
  ASSERT_EQ(f.m_rows, 2u);
  ASSERT_EQ(f.m_cols, 3u);
  const float expected[] = {1.5f, -2.0f, 30.0f, 4.0f, 5.0f, 6.0f};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(f.m_data[i], expected[i]) << i;

  // A text matrix too needs 20 bytes; what follows the last line feed is not consumed.
  const Bytes empty = textBytes("MAT\nflt txt\n0\n7\n....");
  EXPECT_EQ(f.ReadFromBuffer(empty.data(), static_cast<uint32_t>(empty.size())), 16u);
  EXPECT_EQ(f.m_rows, 0u);
  EXPECT_EQ(f.m_cols, 7u);

  const Bytes column = textBytes("MAT\nflt txt\n2\n1\n7\n8\n");
  EXPECT_EQ(f.ReadFromBuffer(column.data(), static_cast<uint32_t>(column.size())), column.size());
  EXPECT_EQ(f.m_data[1], 8.0f);
}

TEST(MatTextTest, IntegerElementsTruncateTheScannedFloat) {
  const Bytes text = textBytes("MAT\nuchrtxt\n1\n3\n2.9 255.7 0.2\n");
  HeapMatrix<unsigned char> b;
  b.ReadFromBuffer(text.data(), static_cast<uint32_t>(text.size()));
  EXPECT_EQ(b.m_data[0], 2);
  EXPECT_EQ(b.m_data[1], 255);
  EXPECT_EQ(b.m_data[2], 0);
  const Bytes big = textBytes("MAT\nuinttxt\n1\n2\n16777216 -1.5\n");
  HeapMatrix<unsigned int> u;
  u.ReadFromBuffer(big.data(), static_cast<uint32_t>(big.size()));
  EXPECT_EQ(u.m_data[0], 16777216u);
  EXPECT_EQ(u.m_data[1], 0xffffffffu);  // -1 in 32 bits
}

TEST(MatTextTest, RefusesShortRowsAndImpossibleCountsWithTheMismatchFailure) {
  const char* cases[] = {
      "MAT\nflt txt\n2\n2\n1 2\n3\n",       // a row with one value too few
      "MAT\nflt txt\n1\n2\n1 x\n",          // a value that does not scan
      "MAT\nflt txt\n-1\n2\n........",      // negative count
      "MAT\nflt txt\nx\n2\n.........",      // no count
      "MAT\nflt txt\n1\n2 ..........",      // no line feed behind a count
      "MAT\nflt txt\n99999\n99999\n1 2\n",  // counts far beyond the text, refused before allocating
      "MAT\nflt txt\n2147483648\n1\n",      // count wider than 32-bit int
  };
  for (const char* c : cases) {
    SCOPED_TRACE(c);
    const Bytes bytes = textBytes(c);
    HeapMatrix<float> f;
    ExpectVEXL([&] { f.ReadFromBuffer(bytes.data(), static_cast<uint32_t>(bytes.size())); },
               "file format mismatch (matrix data)", "vexl/heap_matrix", 542);
  }
}

TEST(MatTextTest, NeverScansBeyondABufferWithoutTerminatingZero) {
  // The buffer ends in the middle of a number; the rest of the vector's storage is not read.
  const Bytes text = textBytes("MAT\nflt txt\n1\n1\n1234567");
  HeapMatrix<float> f;
  EXPECT_EQ(f.ReadFromBuffer(text.data(), static_cast<uint32_t>(text.size())), text.size());
  EXPECT_EQ(f.m_data[0], 1234567.0f);
  const Bytes cut(text.begin(), text.end() - 3);
  EXPECT_EQ(f.ReadFromBuffer(cut.data(), static_cast<uint32_t>(cut.size())), cut.size());
  EXPECT_EQ(f.m_data[0], 1234.0f);
}

TEST(HeapMatrixTest, ResizeNeverShrinksButAssignFitsExactly) {
  HeapMatrix<float> m(4, 5);
  EXPECT_EQ(m.m_capacity, 20u);
  float* storage = m.m_data;
  m.Resize(2, 3);
  EXPECT_EQ(m.m_data, storage);
  EXPECT_EQ(m.m_capacity, 20u);
  EXPECT_EQ(m.m_rows * m.m_cols, 6u);
  const HeapMatrix<float> small = MatrixOf<float>(2, 3, {1, 2, 3, 4, 5, 6});
  m.Assign(small);
  EXPECT_EQ(m.m_capacity, 6u);
  EXPECT_EQ(m.m_data[5], 6.0f);
  m.Resize(3, 3);
  EXPECT_EQ(m.m_capacity, 9u);
  m.Clear();
  EXPECT_EQ(m.m_data, nullptr);
  EXPECT_EQ(m.m_rows + m.m_cols + m.m_capacity, 0u);
}

TEST(HeapMatrixTest, AppendGrowsByExactlyTheNeed) {
  HeapMatrix<unsigned int> m;
  unsigned int row[3] = {1, 2, 3};
  m.AppendRow(BaseVector<unsigned int>(row, 3));
  EXPECT_EQ(m.m_capacity, 3u);
  row[0] = 4;
  m.AppendRow(BaseVector<unsigned int>(row, 3));
  EXPECT_EQ(m.m_capacity, 6u);
  m.AppendMatrix(m);  // appending itself
  EXPECT_EQ(m.m_rows, 4u);
  EXPECT_EQ(m.m_capacity, 12u);
  const unsigned int expected[] = {1, 2, 3, 4, 2, 3, 1, 2, 3, 4, 2, 3};
  for (int i = 0; i < 12; ++i) EXPECT_EQ(m.m_data[i], expected[i]) << i;
  EXPECT_EQ(m.Row(1).m_data[0], 4u);
  EXPECT_EQ(m.Row(1).m_size, 3u);
}

TEST(HeapMatrixTest, AppendFailuresCarryTheirOwnLines) {
  const std::string hm = "vexl/heap_matrix";
  HeapMatrix<float> m;
  ExpectVEXL([&] { m.AppendRow(BaseVector<float>()); }, "column size is 0", hm, 209);
  ExpectVEXL([&] { m.AppendMatrix(HeapMatrix<float>()); }, "column size is 0", hm, 209);
  float values[2] = {1, 2};
  m.AppendRow(BaseVector<float>(values, 2));
  ExpectVEXL([&] { m.AppendRow(BaseVector<float>(values, 1)); }, "different column sizes", hm, 240);
  ExpectVEXL([&] { m.AppendMatrix(BaseMatrix<float>(values, 2, 1)); }, "different column sizes", hm,
             229);
}

TEST(HeapMatrixTest, RemoveFrontRowsKeepsColumnsAndStorage) {
  HeapMatrix<unsigned char> m = MatrixOf<unsigned char>(3, 2, {1, 2, 3, 4, 5, 6});
  m.RemoveFrontRows(1);
  EXPECT_EQ(m.m_rows, 2u);
  EXPECT_EQ(m.m_data[0], 3);
  EXPECT_EQ(m.m_data[3], 6);
  ExpectVEXL([&] { m.RemoveFrontRows(3); }, "excerpt is too long", "vexl/heap_matrix", 643);
  m.RemoveFrontRows(2);
  EXPECT_EQ(m.m_rows, 0u);
  EXPECT_EQ(m.m_cols, 2u);
  EXPECT_EQ(m.m_capacity, 6u);
}

}  // namespace
