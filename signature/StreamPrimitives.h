// The primitive encodings of the signature stream that are not plain big-endian words: the
// varint (groups of 7 bits, most significant first, bit 7 set on every byte but the last) and a
// bounded read of a counted block from a std::istream.
//
// Guarantees: writers always use the fewest bytes; readers never run past their limit and never
// allocate more than the input actually delivered, whatever a length field claims.
#ifndef ORVANE_SIGNATURE_STREAMPRIMITIVES_H_
#define ORVANE_SIGNATURE_STREAMPRIMITIVES_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <ostream>
#include <vector>

// Number of bytes of the shortest varint for value (1 for 0, at most 5).
unsigned varintSize(uint32_t value);

// Write value as a varint; both return the number of bytes written.
// REQUIRES: buffer has room for varintSize(value) bytes.
unsigned putVarint(std::ostream& out, uint32_t value);
unsigned storeVarint(unsigned char* buffer, uint32_t value);

// Read a varint: as many bytes as have bit 7 set, plus one, summing (value << 7) + (byte & 0x7F)
// in 32 bits without a length limit. At the end of the stream it stops with what it has and the
// stream's failbit tells the caller.
uint32_t getVarint(std::istream& in);

// The same from memory; advances p. A non-null limit stops the read there, and the answer is
// false when the varint was cut by it.
bool fetchVarint(const unsigned char*& p, const unsigned char* limit, uint32_t& value);

// Replaces out by the next count bytes of in and answers whether all of them came. The buffer
// grows in steps as bytes arrive, so a corrupt count costs no more memory than the input holds.
template <typename Byte>
bool readBounded(std::istream& in, uint64_t count, std::vector<Byte>& out) {
  static_assert(sizeof(Byte) == 1, "byte vectors only");
  constexpr uint64_t kStep = uint64_t{1} << 16;
  out.clear();
  while (out.size() < count) {
    const size_t have = out.size();
    const size_t want = static_cast<size_t>(std::min(kStep, count - have));
    out.resize(have + want);
    in.read(reinterpret_cast<char*>(out.data() + have), static_cast<std::streamsize>(want));
    const size_t got = static_cast<size_t>(in.gcount());
    out.resize(have + got);
    if (got < want) return false;
  }
  return true;
}

#endif  // ORVANE_SIGNATURE_STREAMPRIMITIVES_H_
