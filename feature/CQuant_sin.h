// CQuant_sin: the sine-squared quantiser, finer near m_min and m_max than in the middle.
// exactMin changes only the meaning of index 0 on dequantising; the quantising multiplier is
// always m_levels.
#ifndef ORVANE_FEATURE_CQUANT_SIN_H_
#define ORVANE_FEATURE_CQUANT_SIN_H_

#include "feature/CQuant.h"

class CQuant_sin : public CQuant {
 public:
  CQuant_sin(float min, float max, int levels, bool exactMin);
  ~CQuant_sin() override;

  unsigned char* Quantize(unsigned char* out, const float* in, uint32_t count) const override;
  float* Dequantize(float* out, const unsigned char* in, uint32_t count) const override;
};

#endif  // ORVANE_FEATURE_CQUANT_SIN_H_
