// ByteReader: a bounded cursor over the bytes of a feature object stream. Every read checks
// the remaining length first and fails with "format error in input stream" when the bytes
// end early, so no length inside the stream can move a reader outside its buffer.
#ifndef ORVANE_FEATURE_BYTEREADER_H_
#define ORVANE_FEATURE_BYTEREADER_H_

#include <cstdint>

#include "feature/FeatureObjException.h"
#include "vexl/ByteOrder.h"

class ByteReader {
 public:
  ByteReader(const unsigned char* data, uint32_t size) : m_data(data), m_size(size), m_pos(0) {}

  // Fails unless count more bytes are there.
  void Need(uint32_t count) const {
    if (count > m_size - m_pos) throw FeatureObjException(kFormatError);
  }
  // Returns the next count bytes and moves behind them.
  const unsigned char* Take(uint32_t count) {
    Need(count);
    const unsigned char* at = m_data + m_pos;
    m_pos += count;
    return at;
  }
  uint8_t U8() { return *Take(1); }
  uint16_t U16() { return loadBigEndian16(Take(2)); }
  uint32_t U32() { return loadBigEndian32(Take(4)); }
  float F32() { return floatFromBits(U32()); }
  // Moves by count bytes, which must be there.
  void Skip(uint32_t count) { Take(count); }

  const unsigned char* Here() const { return m_data + m_pos; }
  uint32_t Position() const { return m_pos; }
  uint32_t Remaining() const { return m_size - m_pos; }

 private:
  const unsigned char* m_data;
  uint32_t m_size;
  uint32_t m_pos;
};

#endif  // ORVANE_FEATURE_BYTEREADER_H_
