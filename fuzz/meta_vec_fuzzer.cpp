// Feeds arbitrary bytes to CMetaVec::parse, as a meta block of that length. Bad blocks must end
// in an answer other than the length or in the id-length text, never in a read past the bytes.
#include <cstddef>
#include <cstdint>
#include <string>

#include "signature/CMetaVec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Length 0 means "trust S", which only a caller holding a whole block may ask for.
  if (size == 0 || size > 1 << 16) return 0;
  CMetaVec frames;
  try {
    const unsigned consumed = frames.parse(data, static_cast<unsigned>(size));
    if (consumed == size && frames.frameCount()) {
      std::string block(frames.encodedSize(), '\0');
      frames.storeTo(reinterpret_cast<unsigned char*>(&block[0]));
      const void* value = nullptr;
      for (unsigned i = 0; i < frames.frameCount(); ++i) {
        if (frames.getFrameData(static_cast<int>(i), value) && !value) __builtin_trap();
      }
    }
  } catch (const std::string&) {
  }
  return 0;
}
