// Feeds arbitrary bytes to the meta block readers: CMetaVec::parse, as a block of that length,
// and CMetaVec::readFrom, as the frames of an older-form chunk of that size. Bad input must end
// in a count other than the expected one, in a message on the error stream or in the id-length
// text, never in a read past the bytes or an allocation beyond them.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "signature/CMetaVec.h"

namespace {

// Touches every frame: its id and value must be readable over their whole lengths.
unsigned touch(const CMetaVec& frames) {
  unsigned sum = 0;
  for (unsigned i = 0; i < frames.frameCount(); ++i) {
    const SMetaFrame& frame = frames.frameAt(static_cast<int>(i));
    for (uint32_t j = 0; j < frame.idLength; ++j) sum += static_cast<unsigned char>(frame.id[j]);
    for (uint32_t j = 0; j < frame.dataLength; ++j) sum += frame.data[j];
  }
  return sum;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Length 0 means "trust S", which only a caller holding a whole block may ask for.
  if (size == 0 || size > 1 << 16) return 0;
  volatile unsigned sink = 0;
  CMetaVec frames;
  try {
    if (frames.parse(data, static_cast<unsigned>(size)) == size && frames.frameCount()) {
      std::string block(frames.encodedSize(), '\0');
      frames.storeTo(reinterpret_cast<unsigned char*>(&block[0]));
      sink = sink + touch(frames);
    }
  } catch (const std::string&) {
  }
  CMetaVec chunk;
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  sink = sink + chunk.readFrom(in, static_cast<unsigned>(size)) + touch(chunk);
  return 0;
}
