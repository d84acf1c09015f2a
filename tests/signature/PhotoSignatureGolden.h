// Golden signature streams with real feature objects, shared by the signature object tests:
// "EDG" (one row 1.0, 0.5) and "HUE" (one row 0.25, "H_SIZE" 256), both feature id 2027, with
// the frames "Cuid" = 21 and "VER" = "V6".
#ifndef ORVANE_TESTS_SIGNATURE_PHOTOSIGNATUREGOLDEN_H_
#define ORVANE_TESTS_SIGNATURE_PHOTOSIGNATUREGOLDEN_H_

#include <string>

#include "feature/CFeatureObject.h"
#include "signature/CSignDataMulti.h"
#include "tests/support/HexBytes.h"

// As the object built in memory writes it: no time per row set, so no "msPerRow".
inline std::string builtStream() {
  return hexString(
      "4F525646 00000005 8110 00 4D455441 8109"
      "04 43756964 04 00000015"
      "03 564552 02 5636"
      "07 466561744F626A 29"
      "0002 07EB 03 454447 03 666C74"
      "03 4D41540A 666C7400 62696E0A 00000001 00000002 3F800000 3F000000"
      "07 466561744F626A 3D"
      "0002 07EB 03 485545 03 666C74"
      "05 506172616D 01 03 696E74 01 06 485F53495A45 04 00000100"
      "03 4D41540A 666C7400 62696E0A 00000001 00000001 3E800000");
}

// The same read back and written again: reading supplies the default 30 ms per row, which the
// writer then states.
inline std::string rewrittenStream() {
  return hexString(
      "4F525646 00000005 813F 00 4D455441 8138"
      "04 43756964 04 00000015"
      "03 564552 02 5636"
      "07 466561744F626A 44"
      "0002 07EB 03 454447 03 666C74"
      "05 506172616D 01 06 737472696E67 01 08 6D73506572526F77 02 3330"
      "03 4D41540A 666C7400 62696E0A 00000001 00000002 3F800000 3F000000"
      "07 466561744F626A 51"
      "0002 07EB 03 485545 03 666C74"
      "05 506172616D 02 06 737472696E67 01 08 6D73506572526F77 02 3330"
      "03 696E74 01 06 485F53495A45 04 00000100"
      "03 4D41540A 666C7400 62696E0A 00000001 00000001 3E800000");
}

inline CFeatureObject<float>* oneRowFeature(const char* name, std::initializer_list<float> row) {
  auto* feature = new CFeatureObject<float>(name, 2027);
  std::vector<float> values(row);
  feature->AppendVector(BaseVector<float>(values.data(), static_cast<uint32_t>(values.size())));
  return feature;
}

// The signature that builtStream() holds, built the way the extractor builds one.
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
