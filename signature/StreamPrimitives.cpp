#include "signature/StreamPrimitives.h"

unsigned varintSize(uint32_t value) {
  unsigned size = 1;
  while (value >>= 7) ++size;
  return size;
}

unsigned storeVarint(unsigned char* buffer, uint32_t value) {
  const unsigned size = varintSize(value);
  // Most significant group first; every byte but the last carries the continuation bit.
  for (unsigned i = 0; i < size; ++i) {
    const unsigned shift = 7 * (size - 1 - i);
    const unsigned char group = static_cast<unsigned char>((value >> shift) & 0x7F);
    buffer[i] = i + 1 < size ? static_cast<unsigned char>(group | 0x80) : group;
  }
  return size;
}

unsigned putVarint(std::ostream& out, uint32_t value) {
  unsigned char bytes[5];
  const unsigned size = storeVarint(bytes, value);
  out.write(reinterpret_cast<const char*>(bytes), size);
  return size;
}

uint32_t getVarint(std::istream& in) {
  uint32_t value = 0;
  for (;;) {
    const int byte = in.get();
    if (byte == std::char_traits<char>::eof()) return value;
    value = (value << 7) + (static_cast<uint32_t>(byte) & 0x7F);
    if (!(byte & 0x80)) return value;
  }
}

bool fetchVarint(const unsigned char*& p, const unsigned char* limit, uint32_t& value) {
  value = 0;
  for (;;) {
    if (limit && p >= limit) return false;
    const unsigned char byte = *p++;
    value = (value << 7) + (byte & 0x7F);
    if (!(byte & 0x80)) return true;
  }
}
