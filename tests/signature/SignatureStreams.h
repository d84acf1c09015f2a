// Golden signature streams and helpers shared by the signature tests: streams of the older chunk
// form, and photo signatures with real feature objects: "EDG" (one row 1.0, 0.5) and "HUE" (one
// row 0.25, "H_SIZE" 256), both feature id 2027, with the frames "Cuid" = 21 and "VER" = "V6".
#ifndef ORVANE_TESTS_SIGNATURE_SIGNATURESTREAMS_H_
#define ORVANE_TESTS_SIGNATURE_SIGNATURESTREAMS_H_

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "feature/CFeatureObject.h"
#include "signature/CSignDataMulti.h"
#include "signature/CWholeStream.h"
#include "tests/signature/ToyHook.h"
#include "tests/support/HexBytes.h"

// A matrix stream of one row of two floats, 1.0 and 0.5.
inline const std::string kOlderMat = "4D41540A666C740062696E0A00000001000000023F8000003F000000";

// Outer bodies with "F1C21", "VAD", a tuid, 1000 to 4000 Hz with sr 3 and one chunk holding
// the matrix: varint form (83 bytes, tuid 7) and u32 form with pad bytes (90 bytes, tuid
// FFFFFFFE, which is sign-extended).
inline const std::string kOlderBodyVarint =
    "56455253054631433231494E464F03564144545549440000000000000007"
    "46504152447A0000457A000000000003464541542044415441" +
    kOlderMat;
inline const std::string kOlderBodyWords =
    "5645525300000005463143323100494E464F000000035641440054554944FFFFFFFE"
    "46504152447A0000457A0000000000034645415400000020 44415441" +
    kOlderMat;

// Behind the outer chunk: "META" with "TIT2" = "abc"; an ID3 tag whose size bytes 7F 7F 00 00
// count as 0, so 10 bytes follow its header; the start of a second stream.
inline const std::string kOlderTail =
    "4D455441090454495432036162634944330300007F7F0000000102030405060708094F52564600000005";

// Version 3 stream of kOlderBodyVarint followed by a "META" chunk with one "dsig" frame.
inline std::string olderSignedStream(const std::string& dsig) {
  return hexString("4F52564600000003 53" + kOlderBodyVarint + "4D455441") +
         static_cast<char>(6 + dsig.size()) + hexString("0464736967") +
         static_cast<char>(dsig.size()) + dsig;
}

// A "dsig" with the key "KEY" and the toy signature over what the check of kOlderBodyVarint
// hashes: tuid, info, version text, lf, uf, sr, key, first chunk.
inline std::string olderGoodSignature() {
  return hexString("31 03 4B4559 04") +
         ToyHook::sign(hexString("0000000000000007") + "VADF1C21" +
                           hexString("447A0000457A000000000003") + "KEY" + hexString(kOlderMat),
                       "");
}

inline std::vector<std::string> frameIds(const CMetaVec& frames) {
  std::vector<std::string> ids;
  for (unsigned i = 0; i < frames.frameCount(); ++i) {
    ids.emplace_back(reinterpret_cast<const char*>(frames.frameAt(i).id.data()),
                     frames.frameAt(i).idLength);
  }
  return ids;
}

inline std::string written(CWholeStream& stream) {
  std::ostringstream out;
  EXPECT_EQ(stream.writeStream(out), 0);
  return out.str();
}

// As built in memory: no time per row set, so no "msPerRow".
inline const std::string kBuiltStream = hexString(
    "4F525646000000058110004D4554418109044375696404000000150356455202563607466561744F626A29000207"
    "EB0345444703666C74034D41540A666C740062696E0A00000001000000023F8000003F00000007466561744F626A"
    "3D000207EB0348554503666C7405506172616D0103696E740106485F53495A450400000100034D41540A666C7400"
    "62696E0A00000001000000013E800000");

// Read back and written again: reading supplies the default 30 ms per row, which is then stated.
inline const std::string kRewrittenStream = hexString(
    "4F52564600000005813F004D4554418138044375696404000000150356455202563607466561744F626A44000207"
    "EB0345444703666C7405506172616D0106737472696E6701086D73506572526F77023330034D41540A666C740062"
    "696E0A00000001000000023F8000003F00000007466561744F626A51000207EB0348554503666C7405506172616D"
    "0206737472696E6701086D73506572526F7702333003696E740106485F53495A450400000100034D41540A666C74"
    "0062696E0A00000001000000013E800000");

inline CFeatureObject<float>* oneRowFeature(const char* name, std::vector<float> row) {
  auto* feature = new CFeatureObject<float>(name, 2027);
  feature->AppendVector(BaseVector<float>(row.data(), static_cast<uint32_t>(row.size())));
  return feature;
}

// The signature kBuiltStream holds, built the way the extractor builds one.
inline CSignDataMulti* builtSignature() {
  auto* data = new CSignDataMulti;
  data->AddFeatureObject(oneRowFeature("EDG", {1.0f, 0.5f}));
  CFeatureObject<float>* hue = oneRowFeature("HUE", {0.25f});
  hue->SetParameter("H_SIZE", 256u);
  data->AddFeatureObject(hue);
  data->setCuid(21);
  data->addFrame(SMetaFrame(3, 2, "VER", "V6"));
  return data;
}

#endif  // ORVANE_TESTS_SIGNATURE_SIGNATURESTREAMS_H_
