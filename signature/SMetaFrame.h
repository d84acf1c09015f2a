// SMetaFrame: one meta frame, an id of 1 to 255 bytes and a value of any length. Both blocks are
// owned and carry a zero byte behind their length in memory (never in a stream), so a value can
// be read as text. Copies are deep.
//
// A frame read from a stream that delivered fewer bytes than it announced has idLength 0: that
// marks the frame as failed.
#ifndef ORVANE_SIGNATURE_SMETAFRAME_H_
#define ORVANE_SIGNATURE_SMETAFRAME_H_

#include <cstdint>
#include <istream>
#include <vector>

#include "signature/CMetaFrameBase.h"

class SMetaFrame : public CMetaFrameBase {
 public:
  SMetaFrame() = default;
  SMetaFrame(uint32_t idLength, uint32_t dataLength, const char* id, const void* data);
  // Reads idLength id bytes, a varint value length and the value from in.
  SMetaFrame(uint32_t idLength, std::istream& in);

  unsigned char* set(uint32_t idLength, uint32_t dataLength, const char* id,
                     const void* data) override;

  // Whether the id is length bytes long and agrees with id in a comparison that, like strncmp,
  // stops at a zero byte.
  bool hasId(const char* id, uint32_t length) const;

  // Bytes of the frame in a meta block: 1 + idLength + varint of dataLength + dataLength.
  uint32_t encodedSize() const;

  uint32_t idLength = 0;
  std::vector<char> id;  // idLength + 1 bytes, zero-terminated; empty before the first set
  uint32_t dataLength = 0;
  std::vector<unsigned char> data;  // dataLength + 1 bytes, zero-terminated
};

#endif  // ORVANE_SIGNATURE_SMETAFRAME_H_
