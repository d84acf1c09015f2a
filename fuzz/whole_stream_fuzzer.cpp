// Feeds arbitrary bytes to the whole-stream reader and the signature built from it (feature
// map, feature objects, matrices beneath). The first byte picks the hook: odd means a hook
// whose key is "key1" and that accepts every signature, so the signed branch is parsed too;
// even means none. Streams of the older chunk form are converted, so every failure must be one
// of the library's failure types: a reader's text (a std::string), the integer of a repeated
// band-edge chunk, or a feature or matrix failure. A stream that
// reads must write and read back to the same frames.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>

#include "feature/FeatureObjException.h"
#include "signature/CAudioSignMulti.h"
#include "signature/CWholeStream.h"
#include "vexl/VEXLException.h"

namespace {

class AcceptingHook : public CSignatureHook {
 public:
  int hasSigningKey() override { return 0; }
  int hasVerificationKey() override { return 1; }
  int getEncryptionKey(const unsigned char** bytes) override { return key(bytes); }
  int getVerificationKey(const unsigned char** bytes) override { return key(bytes); }
  int signInit() override { return 1; }
  int signUpdate(const void*, unsigned) override { return 0; }
  int signFinal(const unsigned char**, unsigned*) override { return 1; }
  int verifyInit() override { return 0; }
  int verifyUpdate(const void*, unsigned) override { return 0; }
  int verifyFinal(const void*, unsigned) override { return 0; }

 private:
  static int key(const unsigned char** bytes) {
    *bytes = reinterpret_cast<const unsigned char*>("key1");
    return 4;
  }
};

bool sameFrames(const CMetaVec& a, const CMetaVec& b) {
  if (a.frameCount() != b.frameCount()) return false;
  for (unsigned i = 0; i < a.frameCount(); ++i) {
    const SMetaFrame& x = a.frameAt(static_cast<int>(i));
    const SMetaFrame& y = b.frameAt(static_cast<int>(i));
    if (x.idLength != y.idLength || x.dataLength != y.dataLength ||
        std::memcmp(x.id.data(), y.id.data(), x.idLength) != 0 ||
        std::memcmp(x.data.data(), y.data.data(), x.dataLength) != 0) {
      return false;
    }
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > 1 << 16) return 0;
  AcceptingHook hook;
  CSignatureHook* chosen = (data[0] & 1) ? &hook : nullptr;
  std::istringstream in(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
  try {
    CWholeStream read(in, chosen);
    if (read.frameCount() == 0) return 0;
    std::ostringstream out;
    read.writeStream(out);
    std::istringstream again(out.str());
    CWholeStream reread(again, nullptr);
    if (!sameFrames(read, reread) || reread.getStreamVersion() != 5) __builtin_trap();

    CAudioSignMulti sign;
    sign.adopt(new CSignDataMulti(read, nullptr));
    std::ostringstream signOut;
    sign.write(signOut);
    volatile size_t sink = signOut.str().size();
    char text[64];
    sink = sink + static_cast<size_t>(sign.getData()->getMeta("VER", text, sizeof text));
  } catch (const std::string&) {
  } catch (int) {
  } catch (const FeatureObjException&) {
  } catch (const VEXLException&) {
  }
  return 0;
}
