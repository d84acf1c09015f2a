// Golden streams of the older chunk form shared by the signature tests.
#ifndef ORVANE_TESTS_SIGNATURE_OLDERSTREAMS_H_
#define ORVANE_TESTS_SIGNATURE_OLDERSTREAMS_H_

#include <string>

#include "tests/support/HexBytes.h"
#include "tests/signature/ToyHook.h"

// A matrix stream of one row of two floats, 1.0 and 0.5.
inline const std::string kOlderMat =
    "4D41540A 666C7400 62696E0A 00000001 00000002 3F800000 3F000000";

// Outer bodies with "F1C21", "VAD", a tuid, 1000 to 4000 Hz with sr 3 and one chunk holding
// the matrix: varint form (83 bytes, tuid 7) and u32 form with pad bytes (90 bytes, tuid
// FFFFFFFE, which is sign-extended).
inline const std::string kOlderBodyVarint =
    "56455253 05 4631433231 494E464F 03 564144 54554944 0000000000000007"
    "46504152 447A0000 457A0000 00000003 46454154 20 44415441" +
    kOlderMat;
inline const std::string kOlderBodyWords =
    "56455253 00000005 4631433231 00 494E464F 00000003 564144 00 54554944 FFFFFFFE"
    "46504152 447A0000 457A0000 00000003 46454154 00000020 44415441" +
    kOlderMat;

// Behind the outer chunk: "META" with "TIT2" = "abc"; an ID3 tag whose size bytes 7F 7F 00 00
// count as 0, so 10 bytes follow its header; the start of a second stream.
inline const std::string kOlderTail =
    "4D455441 09 04 54495432 03 616263"
    "494433 03 00 00 7F7F0000 00010203040506070809"
    "4F525646 00000005";

// Version 3 stream of kOlderBodyVarint followed by a "META" chunk with one "dsig" frame.
inline std::string olderSignedStream(const std::string& dsig) {
  std::string bytes = hexString("4F525646 00000003 53" + kOlderBodyVarint + "4D455441");
  bytes += static_cast<char>(6 + dsig.size());
  return bytes + hexString("04 64736967") + static_cast<char>(dsig.size()) + dsig;
}

// A "dsig" value with the key "KEY" and the toy signature over what the check of
// kOlderBodyVarint hashes: tuid, info, version text, lf, uf, sr, key, first chunk.
inline std::string olderGoodSignature() {
  const std::string hashed = hexString("0000000000000007") + "VAD" + "F1C21" +
                             hexString("447A0000 457A0000 00000003") + "KEY" + hexString(kOlderMat);
  return hexString("31 03 4B4559 04") + ToyHook::sign(hashed, "");
}

#endif  // ORVANE_TESTS_SIGNATURE_OLDERSTREAMS_H_
