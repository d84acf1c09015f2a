// Golden signature streams with real feature objects: "EDG" (one row 1.0, 0.5) and "HUE" (one
// row 0.25, "H_SIZE" 256), both feature id 2027, with the frames "Cuid" = 21 and "VER" = "V6".
#ifndef ORVANE_TESTS_SIGNATURE_PHOTOSIGNATUREGOLDEN_H_
#define ORVANE_TESTS_SIGNATURE_PHOTOSIGNATUREGOLDEN_H_

#include <string>
#include <vector>

#include "feature/CFeatureObject.h"
#include "signature/CSignDataMulti.h"
#include "tests/support/HexBytes.h"

// As built in memory: no time per row set, so no "msPerRow".
inline std::string builtStream() {
  return hexString(
      "4F525646000000058110004D4554418109044375696404000000150356455202563607466561744F626A29000207"
      "EB0345444703666C74034D41540A666C740062696E0A00000001000000023F8000003F00000007466561744F626A"
      "3D000207EB0348554503666C7405506172616D0103696E740106485F53495A450400000100034D41540A666C7400"
      "62696E0A00000001000000013E800000");
}

// Read back and written again: reading supplies the default 30 ms per row, which is then stated.
inline std::string rewrittenStream() {
  return hexString(
      "4F52564600000005813F004D4554418138044375696404000000150356455202563607466561744F626A44000207"
      "EB0345444703666C7405506172616D0106737472696E6701086D73506572526F77023330034D41540A666C740062"
      "696E0A00000001000000023F8000003F00000007466561744F626A51000207EB0348554503666C7405506172616D"
      "0206737472696E6701086D73506572526F7702333003696E740106485F53495A450400000100034D41540A666C74"
      "0062696E0A00000001000000013E800000");
}

inline CFeatureObject<float>* oneRowFeature(const char* name, std::vector<float> row) {
  auto* feature = new CFeatureObject<float>(name, 2027);
  feature->AppendVector(BaseVector<float>(row.data(), static_cast<uint32_t>(row.size())));
  return feature;
}

// The signature builtStream() holds, built the way the extractor builds one.
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

#endif  // ORVANE_TESTS_SIGNATURE_PHOTOSIGNATUREGOLDEN_H_
