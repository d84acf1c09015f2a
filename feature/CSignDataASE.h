// CSignDataASE: a float feature object holding an audio spectrum envelope. It adds nothing to
// the data or to the stream: after a read it takes its lower and upper band edge ("lf", "uf"
// in Hz) and resolution ("re") out of the unsigned parameter map, before a write it puts them
// back, and before an append it compares them. The values are not range-checked.
#ifndef ORVANE_FEATURE_CSIGNDATAASE_H_
#define ORVANE_FEATURE_CSIGNDATAASE_H_

#include <cstdint>

#include "feature/CFeatureObject.h"

class CSignDataASE : public CFeatureObject<float> {
 public:
  // Named "ASE" with feature id 3.
  CSignDataASE();
  // A copy, with the matrix if copyMatrix, and the three settings.
  CSignDataASE(const CSignDataASE& other, bool copyMatrix);
  // The excerpt of CFeatureObject<float> with the three settings.
  CSignDataASE(const CSignDataASE& other, uint32_t skipMs, uint32_t durationMs);
  ~CSignDataASE() override;

  // Puts "lf", "uf", "re" and then "msPerRow" into the maps.
  void EncodeParameters() override;
  CFeatureObjectBase* CreateExcerpt(uint32_t skipMs, uint32_t durationMs) const override;
  // Takes "lf", "uf" and "re" out of the maps; fails for another name or a missing value.
  void DecodeParameters() override;
  // Whether other is a CSignDataASE with the same milliseconds per row and settings.
  bool HasSameSettings(const CFeatureObjectBase* other) const override;

  uint32_t m_lowerFreq;
  uint32_t m_upperFreq;
  uint32_t m_resolution;
};

#endif  // ORVANE_FEATURE_CSIGNDATAASE_H_
