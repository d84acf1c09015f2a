#include "vexl/heap_matrix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <tuple>

#include "tests/support/ExpectVEXL.h"
#include "tests/support/HexBytes.h"

namespace {

const char kFloatMat[] =
    "4d41540a 666c7400 62696e0a 00000002 00000002 3f800000 c0000000 3f000000 40400000";
const char kByteMat[] = "4d41540a 75636872 62696e0a 00000001 00000003 01 02 ff";
const char kUintMat[] = "4d41540a 75696e74 62696e0a 00000001 00000002 00000001 deadbeef";
const std::string hm = "vexl/heap_matrix", bm = "vexl/base_matrix", ti = "vexl/type_info";

template <typename T>
HeapMatrix<T> MatrixOf(uint32_t rows, uint32_t cols, std::vector<T> values) {
  HeapMatrix<T> m(rows, cols);
  std::copy(values.begin(), values.end(), m.m_data);
  return m;
}

template <typename T>
HeapMatrix<T> Read(const Bytes& bytes) {
  HeapMatrix<T> m;
  EXPECT_EQ(m.ReadFromBuffer(bytes.data(), static_cast<uint32_t>(bytes.size())), bytes.size());
  return m;
}

// Written as the golden bytes, and read back into a matrix that writes them again.
template <typename T>
void ExpectGolden(const HeapMatrix<T>& m, const char* hex) {
  const HeapMatrix<T> back = Read<T>(hexBytes(hex));
  for (const HeapMatrix<T>* written : {&m, &back}) {
    Bytes out(written->StreamBytes());
    EXPECT_EQ(written->WriteToBuffer(out.data(), out.size(), "bin"), out.size());
    EXPECT_EQ(hexText(out), hexText(hexBytes(hex)));
  }
}

TEST(MatStreamTest, WritesAndReadsGoldenBinaryForEveryElementType) {
  ExpectGolden(MatrixOf<float>(2, 2, {1.0f, -2.0f, 0.5f, 3.0f}), kFloatMat);
  ExpectGolden(MatrixOf<unsigned char>(1, 3, {1, 2, 255}), kByteMat);
  ExpectGolden(MatrixOf<unsigned int>(1, 2, {1u, 0xdeadbeefu}), kUintMat);
  ExpectGolden(HeapMatrix<float>(), "4d41540a666c740062696e0a0000000000000000");
  ExpectGolden(HeapMatrix<float>(0xffffffffu, 0), "4d41540a666c740062696e0affffffff00000000");
}

// The fourth magic byte is ignored; a word of another element type is refused.
TEST(MatStreamTest, AcceptsEveryTypeWordOfTheTableAndNoOther) {
  Bytes fil = hexBytes(kFloatMat), chr = hexBytes(kByteMat), intWord = hexBytes(kUintMat);
  std::memcpy(fil.data() + 3, "?filX", 5);
  std::memcpy(chr.data() + 4, "char", 4);
  std::memcpy(intWord.data() + 4, "int\x01", 4);
  EXPECT_EQ(std::make_tuple(Read<float>(fil).m_data[0], Read<unsigned char>(chr).m_data[2],
                            Read<unsigned int>(intWord).m_data[1]),
            std::make_tuple(1.0f, 255, 0xdeadbeefu));
  const Bytes byteWord = hexBytes("4d41540a7563687262696e0a0000000000000000");
  ExpectVEXL([&] { HeapMatrix<float>().ReadFromBuffer(byteWord.data(), 20); },
             "unsupported type conversion", ti, 181);
  const Bytes shortWord = hexBytes("4d41540a75696e0062696e0a0000000000000000");
  ExpectVEXL([&] { HeapMatrix<unsigned int>().ReadFromBuffer(shortWord.data(), 20); },
             "unsupported type conversion", ti, 217);
}

// Binary streams, then text streams. Binary: rows * cols wraps to 0 in 32 bits, 20 + rows *
// cols * 4 to 20 in 64. Text: huge counts are refused before allocating, and a count wider
// than a 32-bit int even without values.
TEST(MatStreamTest, RefusesBadStreamsWithTheTableFailures) {
  const Bytes good = hexBytes(kFloatMat);
  Bytes format = good;
  format[8] = 'x';
  const char* const mismatch = "file format mismatch (matrix data)";
  const struct {
    Bytes bytes;
    const char* message;
    int line;
  } cases[] = {
      {Bytes(good.begin(), good.begin() + 19), "no matrix in buffer", 499},
      {textBytes("MAX\nflt bin\n") + Bytes(8, 0), "file is not an VEXL matrix", 503},
      {format, "unhandled matrix data format", 576},
      {good + Bytes{0}, "too few elements in buffer", 561},
      {Bytes(good.begin(), good.end() - 1), "too few elements in buffer", 561},
      {hexBytes("4d41540a666c740062696e0a0001000000010000"), "too few elements in buffer", 561},
      {hexBytes("4d41540a666c740062696e0a8000000080000000"), "too few elements in buffer", 561},
      {textBytes("MAT\nflt txt\n2\n2\n1 2\n3\n"), mismatch, 542},  // a short row
      {textBytes("MAT\nflt txt\n1\n2\n1 x\n"), mismatch, 542},
      {textBytes("MAT\nflt txt\n-1\n2\n........"), mismatch, 542},
      {textBytes("MAT\nflt txt\nx\n2\n........."), mismatch, 542},
      {textBytes("MAT\nflt txt\n1\n2 .........."), mismatch, 542},  // no line feed
      {textBytes("MAT\nflt txt\n99999\n99999\n1 2\n"), mismatch, 542},
      {textBytes("MAT\nflt txt\n2147483648\n0\n"), mismatch, 542},
  };
  for (const auto& c : cases) {
    ExpectVEXL([&] { HeapMatrix<float>().ReadFromBuffer(c.bytes.data(), c.bytes.size()); },
               c.message, hm, c.line);
  }
}

TEST(MatStreamTest, WriteFailuresComeInTheirOrder) {
  const HeapMatrix<float> m = MatrixOf<float>(1, 2, {1.0f, 2.0f});
  ExpectVEXL([&] { m.WriteToBuffer(nullptr, 27, "bin"); }, "buffer too small", bm, 587);
  ExpectVEXL([&] { m.WriteToBuffer(nullptr, 28, "bin"); }, "invalid buffer pointer", bm, 588);
  Bytes out(40, 0xee);  // cleared whole before the mode is looked at
  ExpectVEXL([&] { m.WriteToBuffer(out.data(), 40, "txt"); },
             "Not implemented: Write matrix in txt-format into buffer", "", 0);
  ExpectVEXL([&] { m.WriteToBuffer(out.data(), 40, "bi"); }, "unhandled mode (neither txt nor bin)",
             bm, 659);
  EXPECT_EQ(hexText(out), hexText(hexBytes("4d41540a666c7400") + Bytes(32, 0)));
  EXPECT_EQ(m.WriteToBuffer(out.data(), 40, "binary"), 28u);
}

// The position returned is behind the last line feed read; without a terminating zero, a
// number cut by the buffer's end is read only up to it. Integer elements truncate the float.
TEST(MatTextTest, ReadsRowsAndReturnsThePositionBehindTheLastLineFeed) {
  const Bytes text = textBytes("MAT\n????txt\n2\n3\n1.5 -2 3e1\n4 5 6\nrest");
  HeapMatrix<float> f;
  EXPECT_EQ(f.ReadFromBuffer(text.data(), static_cast<uint32_t>(text.size())), text.size() - 4);
  ASSERT_EQ(std::make_tuple(f.m_rows, f.m_cols), std::make_tuple(2u, 3u));
  EXPECT_EQ(std::vector<float>(f.m_data, f.m_data + 6),
            (std::vector<float>{1.5f, -2.0f, 30.0f, 4.0f, 5.0f, 6.0f}));
  const Bytes empty = textBytes("MAT\nflt txt\n0\n7\n....");
  EXPECT_EQ(f.ReadFromBuffer(empty.data(), static_cast<uint32_t>(empty.size())), 16u);
  EXPECT_EQ(std::make_tuple(f.m_rows, f.m_cols), std::make_tuple(0u, 7u));
  const Bytes cut = textBytes("MAT\nflt txt\n2\n1\n7\n1234");
  EXPECT_EQ(f.ReadFromBuffer(cut.data(), static_cast<uint32_t>(cut.size())), cut.size());
  EXPECT_EQ(f.m_data[1], 1234.0f);
  const HeapMatrix<unsigned char> b =
      Read<unsigned char>(textBytes("MAT\nuchrtxt\n1\n3\n2.9 255.7 0.2\n"));
  EXPECT_EQ(hexText(Bytes(b.m_data, b.m_data + 3)), hexText(hexBytes("02ff00")));
  const HeapMatrix<unsigned int> u =
      Read<unsigned int>(textBytes("MAT\nuinttxt\n1\n2\n16777216 -1.5\n"));
  EXPECT_EQ(std::make_tuple(u.m_data[0], u.m_data[1]), std::make_tuple(16777216u, 0xffffffffu));
}

TEST(HeapMatrixTest, RemoveFrontRowsKeepsTheStorage) {
  HeapMatrix<unsigned char> r = MatrixOf<unsigned char>(3, 2, {1, 2, 3, 4, 5, 6});
  r.RemoveFrontRows(1);
  EXPECT_EQ(hexText(Bytes(r.m_data, r.m_data + 4)), hexText(hexBytes("03040506")));
  ExpectVEXL([&] { r.RemoveFrontRows(3); }, "excerpt is too long", hm, 643);
  r.RemoveFrontRows(2);
  EXPECT_EQ(std::make_tuple(r.m_rows, r.m_cols, r.m_capacity), std::make_tuple(0u, 2u, 6u));
}

TEST(HeapMatrixTest, AppendGrowsByExactlyTheNeedAndChecksColumns) {
  HeapMatrix<unsigned int> m;
  unsigned int row[3] = {1, 2, 3};
  m.AppendRow(BaseVector<unsigned int>(row, 3));
  EXPECT_EQ(m.m_capacity, 3u);
  row[0] = 4;
  m.AppendRow(BaseVector<unsigned int>(row, 3));
  m.AppendMatrix(m);  // appending itself
  EXPECT_EQ(std::make_tuple(m.m_rows, m.m_capacity), std::make_tuple(4u, 12u));
  EXPECT_EQ(std::vector<unsigned int>(m.m_data, m.m_data + 12),
            (std::vector<unsigned int>{1, 2, 3, 4, 2, 3, 1, 2, 3, 4, 2, 3}));
  HeapMatrix<unsigned int> e;
  ExpectVEXL([&] { e.AppendRow(BaseVector<unsigned int>()); }, "column size is 0", hm, 209);
  ExpectVEXL([&] { m.AppendRow(BaseVector<unsigned int>(row, 2)); }, "different column sizes", hm,
             240);
  ExpectVEXL([&] { m.AppendMatrix(BaseMatrix<unsigned int>(row, 3, 1)); }, "different column sizes",
             hm, 229);
}

}  // namespace
