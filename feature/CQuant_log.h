// CQuant_log: the logarithmic quantiser. m_min and m_max are decadic logarithms of the value
// range; values not above m_minLinear = 10^m_min give index 0 before any logarithm is taken,
// so zero and negative values never reach it.
#ifndef ORVANE_FEATURE_CQUANT_LOG_H_
#define ORVANE_FEATURE_CQUANT_LOG_H_

#include "feature/CQuant.h"

class CQuant_log : public CQuant {
 public:
  CQuant_log(float min, float max, int levels, bool exactMin);
  ~CQuant_log() override;

  unsigned char* Quantize(unsigned char* out, const float* in, uint32_t count) const override;
  float* Dequantize(float* out, const unsigned char* in, uint32_t count) const override;

  float m_minLinear;
};

#endif  // ORVANE_FEATURE_CQUANT_LOG_H_
