// BaseMatrix<T>: a row-major view of rows x cols elements that owns nothing. Element (r, c) is
// m_data[r * m_cols + c], without row padding. Writes the binary MAT stream (see
// doc/formats.md); instantiated for float, unsigned char and unsigned int.
#ifndef ORVANE_VEXL_BASE_MATRIX_H_
#define ORVANE_VEXL_BASE_MATRIX_H_

#include <cstdint>
#include <cstring>

#include "vexl/VEXLFailures.h"
#include "vexl/base_vector.h"
#include "vexl/type_info.h"

// Size of the fixed header of a MAT stream: "MAT\n", type word, format word, rows, cols.
inline constexpr uint32_t kMatHeaderBytes = 20;

template <typename T>
class BaseMatrix {
 public:
  BaseMatrix() : m_data(nullptr), m_rows(0), m_cols(0) {}
  BaseMatrix(T* data, uint32_t rows, uint32_t cols) : m_data(data), m_rows(rows), m_cols(cols) {}
  BaseMatrix(const BaseMatrix&) = default;
  BaseMatrix& operator=(const BaseMatrix&) = default;
  virtual ~BaseMatrix() = default;

  // A view of row index, valid until the storage changes.
  // REQUIRES: index < m_rows (not checked).
  BaseVector<T> Row(uint32_t index) const {
    return BaseVector<T>(m_data + static_cast<uint64_t>(index) * m_cols, m_cols);
  }

  // Bytes of the binary MAT stream of this matrix.
  uint64_t StreamBytes() const {
    return kMatHeaderBytes + uint64_t{m_rows} * m_cols * TypeInfo<T>::kElementBytes;
  }

  // Writes the binary MAT stream into buffer and returns the bytes written. The whole given
  // buffer is zero-filled first, not only the part written. mode counts on its first three
  // characters: "bin" writes, "txt" is refused as not implemented.
  uint32_t WriteToBuffer(unsigned char* buffer, uint32_t size, const char* mode) const {
    const uint64_t needed = StreamBytes();
    if (size < needed) ThrowVEXL(kBufferTooSmall);
    if (buffer == nullptr) ThrowVEXL(kInvalidBufferPointer);
    std::memset(buffer, 0, size);
    std::memcpy(buffer, "MAT\n", 4);
    std::memcpy(buffer + 4, TypeInfo<T>::kStreamWord, 4);
    if (std::strncmp(mode, "txt", 3) == 0) ThrowVEXL(kTextWriteNotImplemented);
    if (std::strncmp(mode, "bin", 3) != 0) ThrowVEXL(kUnhandledMode);
    std::memcpy(buffer + 8, "bin\n", 4);
    storeBigEndian32(buffer + 12, m_rows);
    storeBigEndian32(buffer + 16, m_cols);
    unsigned char* out = buffer + kMatHeaderBytes;
    const uint64_t count = uint64_t{m_rows} * m_cols;
    for (uint64_t i = 0; i < count; ++i, out += TypeInfo<T>::kElementBytes) {
      TypeInfo<T>::Store(out, m_data[i]);
    }
    return static_cast<uint32_t>(needed);
  }

  T* m_data;
  uint32_t m_rows;
  uint32_t m_cols;
};

#endif  // ORVANE_VEXL_BASE_MATRIX_H_
