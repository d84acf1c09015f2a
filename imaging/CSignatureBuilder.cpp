#include "imaging/CSignatureBuilder.h"

#include <string>

#include "imaging/ImagingErrors.h"
#include "imaging/SFeatureBuffers.h"
#include "signature/SMetaFrame.h"
#include "vexl/base_vector.h"

namespace {

const unsigned kCuid = 21;

// Appends the first `count` values as a row. The view is only read: AppendVector copies.
void appendRow(CFeatureObject<float>* feature, const float* values, int count) {
  feature->AppendVector(
      BaseVector<float>(const_cast<float*>(values), static_cast<uint32_t>(count)));
}

}  // namespace

CSignatureBuilder::CSignatureBuilder() : signData(new CSignDataMulti), sign(new CAudioSignMulti) {
  edgFeature = new CFeatureObject<float>("EDG", kFeatureId);
  signData->AddFeatureObject(edgFeature);
  hueFeature = new CFeatureObject<float>("HUE", kFeatureId);
  satFeature = new CFeatureObject<float>("SAT", kFeatureId);
  valFeature = new CFeatureObject<float>("VAL", kFeatureId);
  hueFeature->SetParameter("H_SIZE", 256u);
  satFeature->SetParameter("S_SIZE", 64u);
  valFeature->SetParameter("V_SIZE", 64u);
  signData->AddFeatureObject(hueFeature);
  signData->AddFeatureObject(satFeature);
  signData->AddFeatureObject(valFeature);
  sign->adopt(signData);
  signData->setCuid(kCuid);
  signData->addFrame(SMetaFrame(3, 2, "VER", "V6"));
}

CSignatureBuilder::~CSignatureBuilder() = default;

CAudioSignMulti& CSignatureBuilder::build(const SFeatureBuffers& buffers) {
  edgFeature->ClearMatrix();
  appendRow(edgFeature, buffers.edg, SFeatureBuffers::kEdgValues);
  hueFeature->ClearMatrix();
  satFeature->ClearMatrix();
  valFeature->ClearMatrix();
  appendRow(hueFeature, buffers.hue, SFeatureBuffers::kHueValues);
  appendRow(satFeature, buffers.sat, SFeatureBuffers::kSatValues);
  appendRow(valFeature, buffers.val, SFeatureBuffers::kValValues);
  if (!sign->hasData()) throw std::string(kAudioSignNotValid);
  return *sign;
}
