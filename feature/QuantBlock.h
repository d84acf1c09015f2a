// The Quant block: the stream form of a CQuantModule<float> inside a feature object stream
// (see doc/formats.md). Blocks are only ever parsed; a stream carries them back out as the
// raw bytes that were read.
#ifndef ORVANE_FEATURE_QUANTBLOCK_H_
#define ORVANE_FEATURE_QUANTBLOCK_H_

#include <cstdint>

#include "feature/CQuantModule.h"

// Bytes of the length and count in front of the entries, of a quantiser entry, and the extra
// bytes of a polynomial one.
inline constexpr uint32_t kQuantHeadBytes = 6;
inline constexpr uint32_t kQuantEntryBytes = 14;
inline constexpr uint32_t kPolynomialExtraBytes = 8;

// Bytes of the block that holds module's quantisers: 6 + 14 per quantiser + 8 more per
// polynomial one. A block read from a stream may carry spare bytes behind its entries; they
// are not counted here.
uint32_t QuantBlockBytes(const CQuantModule<float>& module);

// Adds the quantisers of the block to module and returns the bytes parsed. The block's own
// length field is not used: size bounds the parse, and a block that ends inside an entry
// fails with "format error in input stream". An unknown quantiser type fails with "unknown
// type of quantizer found"; the quantiser constructors' own throws pass through.
uint32_t ParseQuantBlock(const unsigned char* block, uint32_t size, CQuantModule<float>* module);

#endif  // ORVANE_FEATURE_QUANTBLOCK_H_
