#include "feature/CQuant_log.h"

#include <cmath>

// m_minLinear = 10^m_min in double, rounded to float.
CQuant_log::CQuant_log(float min, float max, int levels, bool exactMin)
    : CQuant(min, max, levels, exactMin),
      m_minLinear(static_cast<float>(std::pow(10.0, static_cast<double>(m_min)))) {}

CQuant_log::~CQuant_log() = default;

// y = log10(x) in double, rounded to float, then the linear rule with its clipping.
unsigned char* CQuant_log::Quantize(unsigned char* out, const float* in, uint32_t count) const {
  for (uint32_t k = 0; k < count; ++k) {
    const float x = in[k];
    if (!(x > m_minLinear)) {
      out[k] = 0;
      continue;
    }
    const float y = static_cast<float>(std::log10(static_cast<double>(x)));
    out[k] = static_cast<unsigned char>(LinearIndex(y));
  }
  return out;
}

// y as in the linear rule, rounded to float; the value is 10^y in double, rounded to float.
float* CQuant_log::Dequantize(float* out, const unsigned char* in, uint32_t count) const {
  for (uint32_t k = 0; k < count; ++k) {
    if (in[k] >= m_levels) throw -3;
    const float y = LinearValue(in[k]);
    out[k] = static_cast<float>(std::pow(10.0, static_cast<double>(y)));
  }
  return out;
}
