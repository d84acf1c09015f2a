// HeapMatrix<T>: a BaseMatrix<T> that owns its storage, one contiguous block of m_capacity
// elements with m_rows * m_cols <= m_capacity at all times. Storage grows by exactly what is
// needed and never shrinks except through Assign and Clear. Reads the MAT stream in binary
// and text form (see doc/formats.md) without ever looking outside the given buffer.
#ifndef ORVANE_VEXL_HEAP_MATRIX_H_
#define ORVANE_VEXL_HEAP_MATRIX_H_

#include <cstdint>
#include <cstring>
#include <iostream>
#include <new>

#include "vexl/MatTextScanner.h"
#include "vexl/VEXLFailures.h"
#include "vexl/base_matrix.h"
#include "vexl/type_info.h"

template <typename T>
class HeapMatrix : public BaseMatrix<T> {
 public:
  HeapMatrix() : m_capacity(0) {}
  HeapMatrix(uint32_t rows, uint32_t cols) : m_capacity(0) { Resize(rows, cols); }
  HeapMatrix(const HeapMatrix& other) : BaseMatrix<T>(), m_capacity(0) { Assign(other); }
  HeapMatrix& operator=(const HeapMatrix& other) {
    Assign(other);
    return *this;
  }
  ~HeapMatrix() override { delete[] this->m_data; }

  // Sets the shape; reallocates only if rows * cols exceeds m_capacity. Contents are not kept.
  void Resize(uint32_t rows, uint32_t cols) {
    const uint32_t count = ElementCount(rows, cols);
    if (count > m_capacity) Reallocate(count);
    this->m_rows = rows;
    this->m_cols = cols;
  }

  // Makes this matrix a copy of source. The storage is reallocated whenever its capacity is
  // not exactly the source's element count, so an Assign can shrink it.
  void Assign(const BaseMatrix<T>& source) {
    if (&source == this) return;
    const uint32_t count = ElementCount(source.m_rows, source.m_cols);
    if (count != m_capacity) Reallocate(count);
    this->m_rows = source.m_rows;
    this->m_cols = source.m_cols;
    if (count != 0) std::memcpy(this->m_data, source.m_data, count * sizeof(T));
  }

  // Frees the storage; the matrix is then as default-constructed.
  void Clear() {
    delete[] this->m_data;
    this->m_data = nullptr;
    this->m_rows = 0;
    this->m_cols = 0;
    m_capacity = 0;
  }

  // Appends one row. A matrix without columns takes the vector's size.
  void AppendRow(const BaseVector<T>& vector) {
    AppendRows(vector.m_data, 1, vector.m_size, kColumnsDifferAppendRow);
  }

  // Appends all rows of matrix. A matrix without columns takes the other's column count.
  void AppendMatrix(const BaseMatrix<T>& matrix) {
    AppendRows(matrix.m_data, matrix.m_rows, matrix.m_cols, kColumnsDifferAppendMatrix);
  }

  // Drops count rows from the front; columns, capacity and storage stay.
  void RemoveFrontRows(uint32_t count) {
    if (count > this->m_rows) ThrowVEXL(kExcerptTooLong);
    if (count < this->m_rows) {
      std::memmove(this->m_data, this->m_data + uint64_t{count} * this->m_cols,
                   uint64_t{this->m_rows - count} * this->m_cols * sizeof(T));
    }
    this->m_rows -= count;
  }

  // Replaces this matrix by the MAT stream in buffer and returns the bytes consumed. After a
  // failure the matrix may have its new shape with undefined elements.
  uint32_t ReadFromBuffer(const unsigned char* buffer, uint32_t size) {
    if (size < kMatHeaderBytes) ThrowVEXL(kNoMatrixInBuffer);
    if (std::memcmp(buffer, "MAT", 3) != 0) ThrowVEXL(kNotAMatrix);
    if (std::memcmp(buffer + 8, "txt\n", 4) == 0) return ReadText(buffer, size);
    if (std::memcmp(buffer + 8, "bin\n", 4) != 0) ThrowVEXL(kUnhandledFormat);

    const uint32_t rows = loadBigEndian32(buffer + 12);
    const uint32_t cols = loadBigEndian32(buffer + 16);
    // size = 20 + rows * cols * e exactly; also what a buffer longer than the matrix gets.
    // The element count is compared by division first, so that no product of the counts can
    // wrap (in 32 bits or in 64) into a small matrix that passes.
    const uint64_t elements = uint64_t{rows} * cols;
    const uint32_t dataBytes = size - kMatHeaderBytes;
    if (elements > dataBytes / TypeInfo<T>::kElementBytes ||
        elements * TypeInfo<T>::kElementBytes != dataBytes) {
      ThrowVEXL(kTooFewElements);
    }
    Resize(rows, cols);
    TypeInfo<T>::CheckStreamWord(buffer + 4);
    const unsigned char* in = buffer + kMatHeaderBytes;
    const auto count = static_cast<uint32_t>(elements);
    for (uint32_t i = 0; i < count; ++i, in += TypeInfo<T>::kElementBytes) {
      this->m_data[i] = TypeInfo<T>::Load(in);
    }
    return size;
  }

  // Builds the matrix from the numbered data chunks of an older signature stream, each a MAT
  // stream, appended in their stored order. A gap in the numbering is reported on the error
  // stream and reading goes on. Chunks offers subChunkCount(), subChunkIndex(i),
  // subChunkLength(i) and subChunkData(i).
  template <typename Chunks>
  void ReadFromChunks(const Chunks& chunks) {
    const int count = chunks.subChunkCount();
    uint64_t total = 0;
    for (int i = 0; i < count; ++i) total += static_cast<uint32_t>(chunks.subChunkLength(i));
    // kept: the byte total sizes the storage in elements, an over-allocation for floats.
    if (m_capacity < total) Reallocate(ElementCount(total, 1));
    this->m_rows = 0;
    this->m_cols = 0;
    if (count == 0) return;
    ReadFromBuffer(chunks.subChunkData(0), static_cast<uint32_t>(chunks.subChunkLength(0)));
    int64_t expected = int64_t{chunks.subChunkIndex(0)} + 1;
    for (int i = 1; i < count; ++i) {
      const int index = chunks.subChunkIndex(i);
      if (index != expected) {
        std::cerr << "warning: expected data chunk id=" << expected << ", but got a" << index
                  << std::endl;
      }
      expected = int64_t{index} + 1;
      HeapMatrix<T> part;
      part.ReadFromBuffer(chunks.subChunkData(i), static_cast<uint32_t>(chunks.subChunkLength(i)));
      // Rows read without columns hold no bytes; once a chunk brings columns, all of them
      // would need elements that no chunk carried. More elements than the chunks' total
      // bytes is refused, so that a few bytes cannot ask for gigabytes.
      if (this->m_cols == 0 && part.m_cols != 0 &&
          uint64_t{this->m_rows} + part.m_rows > total / part.m_cols) {
        ThrowVEXL(kTooFewElements);
      }
      AppendMatrix(part);
    }
  }

  uint32_t m_capacity;

 private:
  // Element count of a shape; one that does not fit the 32-bit capacity cannot be allocated.
  static uint32_t ElementCount(uint64_t rows, uint32_t cols) {
    if (rows > UINT32_MAX) throw std::bad_alloc();
    const uint64_t count = rows * cols;
    if (count > UINT32_MAX) throw std::bad_alloc();
    return static_cast<uint32_t>(count);
  }

  void Reallocate(uint32_t count) {
    delete[] this->m_data;
    this->m_data = nullptr;
    m_capacity = 0;
    // Zero-filled, so that elements no one writes never carry old heap contents into a stream.
    if (count != 0) this->m_data = new T[count]();
    m_capacity = count;
  }

  void AppendRows(const T* rows, uint32_t rowCount, uint32_t cols,
                  const VEXLFailure& columnsDiffer) {
    if (this->m_cols == 0) this->m_cols = cols;
    if (cols != this->m_cols) ThrowVEXL(columnsDiffer);
    if (this->m_cols == 0) ThrowVEXL(kColumnSizeZero);
    const uint32_t oldCount = this->m_rows * this->m_cols;
    const uint32_t newCount = ElementCount(uint64_t{this->m_rows} + rowCount, this->m_cols);
    const size_t appendedBytes = size_t{newCount - oldCount} * sizeof(T);
    // Growth by exactly the need: appending row by row costs a copy per row. The new rows are
    // copied before the old storage goes, so a matrix may append itself.
    if (newCount > m_capacity) {
      T* grown = new T[newCount]();
      // Rows counted without columns own no storage; only what was stored moves over.
      const uint32_t kept = oldCount < m_capacity ? oldCount : m_capacity;
      if (kept != 0) std::memcpy(grown, this->m_data, kept * sizeof(T));
      if (appendedBytes != 0) std::memcpy(grown + oldCount, rows, appendedBytes);
      delete[] this->m_data;
      this->m_data = grown;
      m_capacity = newCount;
    } else if (appendedBytes != 0) {
      std::memmove(this->m_data + oldCount, rows, appendedBytes);
    }
    this->m_rows += rowCount;
  }

  // The text form: counts and values in decimal, values separated by one blank, rows ended by
  // a line feed. The type word is not looked at.
  uint32_t ReadText(const unsigned char* buffer, uint32_t size) {
    MatTextScanner scanner(buffer, size, 12);
    uint32_t rows = 0;
    uint32_t cols = 0;
    if (!scanner.ReadCount(&rows) || !scanner.ReadCount(&cols)) ThrowVEXL(kTextMismatch);
    // Every value but the last of the text moves the cursor by at least one byte, so counts
    // that promise more values than there are bytes left must fail; they fail here, before
    // a matrix of their size is allocated.
    if (uint64_t{rows} * cols > uint64_t{scanner.Remaining()} + 1) ThrowVEXL(kTextMismatch);
    Resize(rows, cols);
    // A matrix without columns has no values to scan: its rows take no text at all.
    if (cols == 0) return scanner.Position();
    for (uint32_t r = 0; r < rows; ++r) {
      T* row = this->m_data + uint64_t{r} * cols;
      uint32_t scanned = 0;
      for (uint32_t c = 0; c < cols; ++c) {
        float value = 0.0f;
        if (scanner.ScanValue(&value)) {
          row[c] = TypeInfo<T>::FromScanned(value);
          ++scanned;
        }
        scanner.SkipPast(c + 1 < cols ? ' ' : '\n');
      }
      if (scanned != cols) ThrowVEXL(kTextMismatch);
    }
    return scanner.Position();
  }
};

#endif  // ORVANE_VEXL_HEAP_MATRIX_H_
