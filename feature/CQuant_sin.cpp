#include "feature/CQuant_sin.h"

#include <cmath>

namespace {

constexpr double kPi = 3.14159265358979323846;

}  // namespace

CQuant_sin::CQuant_sin(float min, float max, int levels, bool exactMin)
    : CQuant(min, max, levels, exactMin) {}

CQuant_sin::~CQuant_sin() = default;

// index = floor(m_levels * sin^2((x - m_min) * pi / (2 * |m_max - m_min|))): both differences
// in float, everything else in double.
unsigned char* CQuant_sin::Quantize(unsigned char* out, const float* in, uint32_t count) const {
  const double halfPeriod = 2.0 * static_cast<double>(std::fabs(m_max - m_min));
  return QuantizeEach(out, in, count, [this, halfPeriod](float x) {
    const float offset = x - m_min;
    const double s = std::sin(static_cast<double>(offset) * kPi / halfPeriod);
    return Floor(m_levels * (s * s));
  });
}

// value = asin(sqrt((i + 0.5) / m_levels)) * (2 * |m_max - m_min| / pi) + m_min in double,
// rounded to float.
float* CQuant_sin::Dequantize(float* out, const unsigned char* in, uint32_t count) const {
  const double scale = 2.0 * static_cast<double>(std::fabs(m_max - m_min)) / kPi;
  return DequantizeEach(out, in, count, [this, scale](unsigned int i) {
    return static_cast<float>(std::asin(std::sqrt((i + 0.5) / m_levels)) * scale +
                              static_cast<double>(m_min));
  });
}
