#include "feature/CQuant.h"

#include <cmath>

#include "vexl/Truncate.h"

// m_step in float: (m_max - m_min) / m_levels, or / (m_levels - 1) with exactMin. With
// exactMin and one level the divisor is 0 and the step is infinite.
CQuant::CQuant(float min, float max, int levels, bool exactMin)
    : m_min(min), m_max(max), m_levels(levels), m_exactMin(exactMin), m_step(0.0f) {
  if (!(m_max > m_min)) throw -1;
  if (m_levels < 1) throw -2;
  const float range = m_max - m_min;
  m_step = m_exactMin ? range / static_cast<float>(m_levels - 1)
                      : range / static_cast<float>(m_levels);
}

CQuant::~CQuant() = default;

float CQuant::GetRisingAtZero() const { return 1.0f; }

float CQuant::GetRisingAtOne() const { return 1.0f; }

int64_t CQuant::Floor(double value) { return TruncateToInt64(std::floor(value)); }

// index = floor((x - m_min) * (1.0 / m_step)): the difference in float, the reciprocal and
// the product in double.
int64_t CQuant::LinearIndex(float x) const {
  if (!(x > m_min)) return 0;
  if (!(x < m_max)) return m_levels - 1;
  const float offset = x - m_min;
  return Floor(static_cast<double>(offset) * (1.0 / static_cast<double>(m_step)));
}

// value = (i + 0.5) * m_step + m_min in double, rounded to float; index 0 is m_min exactly
// with exactMin.
float CQuant::LinearValue(unsigned int index) const {
  if (m_exactMin && index == 0) return m_min;
  return static_cast<float>((index + 0.5) * static_cast<double>(m_step) +
                            static_cast<double>(m_min));
}

unsigned char* CQuant::Quantize(unsigned char* out, const float* in, uint32_t count) const {
  return QuantizeEach(out, in, count, [this](float x) { return LinearIndex(x); });
}

float* CQuant::Dequantize(float* out, const unsigned char* in, uint32_t count) const {
  return DequantizeEach(out, in, count, [this](unsigned int i) { return LinearValue(i); });
}
