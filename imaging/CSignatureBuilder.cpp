#include "imaging/CSignatureBuilder.h"

#include <string>

#include "imaging/ImagingErrors.h"
#include "imaging/SFeatureBuffers.h"
#include "signature/SMetaFrame.h"
#include "vexl/base_matrix.h"

namespace {

const unsigned kCuid = 21;

// Makes the first `count` values the feature's only row, as clearing the matrix and appending
// them would. The storage is kept once it has the row's size, so a run allocates nothing here.
// The view is only read: Assign copies.
void setRow(CFeatureObject<float>* feature, const float* values, int count) {
  feature->m_matrix.Assign(
      BaseMatrix<float>(const_cast<float*>(values), 1, static_cast<uint32_t>(count)));
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
  setRow(edgFeature, buffers.edg, SFeatureBuffers::kEdgValues);
  setRow(hueFeature, buffers.hue, SFeatureBuffers::kHueValues);
  setRow(satFeature, buffers.sat, SFeatureBuffers::kSatValues);
  setRow(valFeature, buffers.val, SFeatureBuffers::kValValues);
  if (!sign->hasData()) throw std::string(kAudioSignNotValid);
  return *sign;
}
