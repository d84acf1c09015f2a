// Big-endian loads and stores. Every stream of the library keeps its multi-byte numbers
// most significant byte first, and a float travels as its IEEE 754 bit pattern; these are
// the only helpers that touch byte order, so every reader and writer shares them.
// REQUIRES: the pointer has room for the number of bytes read or written.
#ifndef ORVANE_VEXL_BYTEORDER_H_
#define ORVANE_VEXL_BYTEORDER_H_

#include <cstdint>
#include <cstring>

inline uint16_t loadBigEndian16(const unsigned char* p) {
  return static_cast<uint16_t>((p[0] << 8) | p[1]);
}

inline uint32_t loadBigEndian32(const unsigned char* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

inline uint64_t loadBigEndian64(const unsigned char* p) {
  return (uint64_t{loadBigEndian32(p)} << 32) | loadBigEndian32(p + 4);
}

inline void storeBigEndian16(unsigned char* p, uint16_t v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}

inline void storeBigEndian32(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v >> 24);
  p[1] = static_cast<unsigned char>(v >> 16);
  p[2] = static_cast<unsigned char>(v >> 8);
  p[3] = static_cast<unsigned char>(v);
}

inline void storeBigEndian64(unsigned char* p, uint64_t v) {
  storeBigEndian32(p, static_cast<uint32_t>(v >> 32));
  storeBigEndian32(p + 4, static_cast<uint32_t>(v));
}

inline uint32_t floatBits(float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  return bits;
}

inline float floatFromBits(uint32_t bits) {
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}

inline uint64_t doubleBits(double d) {
  uint64_t bits;
  std::memcpy(&bits, &d, sizeof bits);
  return bits;
}

inline double doubleFromBits(uint64_t bits) {
  double d;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}

#endif  // ORVANE_VEXL_BYTEORDER_H_
