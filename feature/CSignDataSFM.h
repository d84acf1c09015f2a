// CSignDataSFM: a float feature object holding a spectral flatness measure over quarter-octave
// bands. It adds nothing to the data or to the stream: after a read it takes its band edges
// ("lf", "uf" in Hz) and temporal resolution ("sr") out of the unsigned parameter map and
// checks them, before a write it puts them back, and before an append it compares them.
#ifndef ORVANE_FEATURE_CSIGNDATASFM_H_
#define ORVANE_FEATURE_CSIGNDATASFM_H_

#include <cstdint>

#include "feature/CFeatureObject.h"

class CSignDataSFM : public CFeatureObject<float> {
 public:
  // Named "SFM" with feature id 2.
  CSignDataSFM();
  // A copy, with the matrix if copyMatrix, and the four settings.
  CSignDataSFM(const CSignDataSFM& other, bool copyMatrix);
  // The excerpt of CFeatureObject<float> with the four settings.
  CSignDataSFM(const CSignDataSFM& other, uint32_t skipMs, uint32_t durationMs);
  ~CSignDataSFM() override;

  // Puts "lf", "uf", "sr" and then "msPerRow" into the maps. Fails when the rows overlap or
  // the milliseconds per row disagree with the temporal resolution.
  void EncodeParameters() override;
  CFeatureObjectBase* CreateExcerpt(uint32_t skipMs, uint32_t durationMs) const override;
  // Always m_tempRes * 30 ms per row, whatever was set.
  float SetDefaultMsPerRow() override;
  // Takes "lf", "uf" and "sr" out of the maps; fails for another name, a missing value or a
  // band range outside 0 to 23.
  void DecodeParameters() override;
  // Whether other is a CSignDataSFM with the same milliseconds per row and settings.
  bool HasSameSettings(const CFeatureObjectBase* other) const override;

  uint32_t m_tempRes;    // units of 30 ms per row: the "sr" parameter
  uint32_t m_rowStride;  // same units; unequal to m_tempRes means overlapping rows
  int32_t m_sfmLowBand;
  int32_t m_sfmHighBand;
};

#endif  // ORVANE_FEATURE_CSIGNDATASFM_H_
