// CSignatureBuilder: the joint between the image analysis and the signature layer.
//
// It holds one signature prepared once: four float features of feature id 2027 with one row
// each, "EDG" (96 values), "HUE" (144, parameter "H_SIZE" 256), "SAT" (36, "S_SIZE" 64) and
// "VAL" (36, "V_SIZE" 64), and the meta frames "Cuid" (21) then "VER" ("V6"). Each build
// replaces the rows with the tile values of a run; grid means are never delivered (the
// database recomputes them). The sizes name the length of a feature with its means.
//
// The signature is the same object for every run, so a caller that keeps a result copies it.
#ifndef ORVANE_IMAGING_CSIGNATUREBUILDER_H_
#define ORVANE_IMAGING_CSIGNATUREBUILDER_H_

#include <memory>

#include "feature/CFeatureObject.h"
#include "signature/CAudioSignMulti.h"
#include "signature/CSignDataMulti.h"

struct SFeatureBuffers;

class CSignatureBuilder {
 public:
  static const int kFeatureId = 2027;

  CSignatureBuilder();
  ~CSignatureBuilder();
  CSignatureBuilder(const CSignatureBuilder&) = delete;
  CSignatureBuilder& operator=(const CSignatureBuilder&) = delete;

  // Replaces the one row of each feature with the tile values of `buffers` and returns the
  // signature. Throws std::string "AudioSign not valid" when the signature holds no data;
  // failures of the feature layer pass through.
  CAudioSignMulti& build(const SFeatureBuffers& buffers);

  CSignDataMulti* signData;  // owned through sign
  std::unique_ptr<CAudioSignMulti> sign;
  // Owned through signData.
  CFeatureObject<float>* hueFeature;
  CFeatureObject<float>* satFeature;
  CFeatureObject<float>* valFeature;
  CFeatureObject<float>* edgFeature;
};

#endif  // ORVANE_IMAGING_CSIGNATUREBUILDER_H_
