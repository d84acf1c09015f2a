// CMetaFrameBase: the abstract face of a meta frame, a named value that can be (re)set in one go.
#ifndef ORVANE_SIGNATURE_CMETAFRAMEBASE_H_
#define ORVANE_SIGNATURE_CMETAFRAMEBASE_H_

#include <cstdint>

class CMetaFrameBase {
 public:
  virtual ~CMetaFrameBase() = default;

  // Replaces id and value; a null pointer leaves that block's content for the caller to fill.
  // Returns the value block.
  virtual unsigned char* set(uint32_t idLength, uint32_t dataLength, const char* id,
                             const void* data) = 0;
};

#endif  // ORVANE_SIGNATURE_CMETAFRAMEBASE_H_
