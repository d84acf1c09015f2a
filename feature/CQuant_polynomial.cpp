#include "feature/CQuant_polynomial.h"

#include <cmath>
#include <string>

#include "feature/FeatureObjException.h"

namespace {

// The table is built in exactly this many steps of kGridStep, whatever the level count.
constexpr int kGridSteps = 1000;
constexpr float kGridStep = 0.001f;

}  // namespace

// Coefficients in float: linear = r0, cubic = r0 + r1 - 2, quadratic = 1 - cubic - r0.
CQuant_polynomial::CQuant_polynomial(float min, float max, int levels, bool exactMin,
                                     float risingAtZero, float risingAtOne)
    : CQuant(min, max, levels, exactMin),
      m_risingAtZero(0.0f),
      m_risingAtOne(0.0f),
      m_cubic(0.0f),
      m_quadratic(0.0f),
      m_linear(0.0f) {
  if (risingAtZero < 0.0f || risingAtOne < 0.0f) throw std::string(kRisingNegative);
  m_risingAtZero = risingAtZero;
  m_risingAtOne = risingAtOne;
  m_linear = risingAtZero;
  m_cubic = risingAtZero + risingAtOne - 2.0f;
  m_quadratic = 1.0f - m_cubic - risingAtZero;
  CheckRising();
  BuildInverse();
}

CQuant_polynomial::~CQuant_polynomial() = default;

float CQuant_polynomial::GetRisingAtZero() const { return m_risingAtZero; }

float CQuant_polynomial::GetRisingAtOne() const { return m_risingAtOne; }

float CQuant_polynomial::Curve(float t) const {
  return m_cubic * t * t * t + m_quadratic * t * t + m_linear * t;
}

// Stationary points of p, all in float: D = (2b)^2 - 12 a r0, s = sqrt(D),
// t1 = (s - 2b) / (6a), t2 = (-2b - s) / (6a). A point where 6a t + 2b is exactly 0 is an
// inflection, where the slope keeps its sign; it is moved out of the interval.
void CQuant_polynomial::CheckRising() const {
  if (m_cubic == 0.0f) return;
  const float a = m_cubic;
  const float b = m_quadratic;
  const float twoB = 2.0f * b;
  const float d = twoB * twoB - 12.0f * a * m_risingAtZero;
  if (d < 0.0f) return;
  const float s = std::sqrt(d);
  const float sixA = 6.0f * a;
  for (float t : {(s - twoB) / sixA, (-twoB - s) / sixA}) {
    if (sixA * t + twoB == 0.0f) t = 2.0f;
    if (t > 0.0f && t < 1.0f) throw std::string(kPolynomialNotRising);
  }
}

// With exactMin the table has m_levels entries over m_levels - 1 intervals, else
// m_levels + 1 entries over m_levels intervals; the last entry is 1.0, the others start at
// 0.0. delta = 1.0 / intervals in double. For exactly 1000 steps of t (0.0, then +0.001 in
// float): if index * delta (double) is not above p(t), entry index becomes t and index moves
// on. At most one entry per step, so a curve steeper than the grid leaves entries lagging and
// with more than 1000 levels the entries behind stay 0.0.
void CQuant_polynomial::BuildInverse() {
  const int intervals = m_exactMin ? m_levels - 1 : m_levels;
  m_inverse.assign(static_cast<size_t>(intervals) + 1, 0.0f);
  m_inverse.back() = 1.0f;
  const double delta = 1.0 / intervals;
  float t = 0.0f;
  size_t index = 0;
  for (int step = 0; step < kGridSteps; ++step) {
    // A rising curve stays below 1 inside the grid, so the index cannot pass the table; the
    // bound is kept for rounding at the top.
    if (index < m_inverse.size() && !(index * delta > Curve(t))) {
      m_inverse[index] = t;
      ++index;
    }
    t = t + kGridStep;
  }
}

// u = (x - m_min) / |m_max - m_min|: the differences in float, the quotient in double,
// rounded to float. index = floor(p(u) * n) with n = m_levels, or m_levels - 1 with
// exactMin; the product in float, the floor in double.
unsigned char* CQuant_polynomial::Quantize(unsigned char* out, const float* in,
                                           uint32_t count) const {
  const double range = std::fabs(m_max - m_min);
  const int multiplier = m_exactMin ? m_levels - 1 : m_levels;
  return QuantizeEach(out, in, count, [this, range, multiplier](float x) {
    const float offset = x - m_min;
    const float u = static_cast<float>(offset / range);
    const float scaled = Curve(u) * static_cast<float>(multiplier);
    return Floor(scaled);
  });
}

// value = (e[i] + 0.5 * (e[i+1] - e[i])) * |m_max - m_min| + m_min: the entry difference in
// float, the rest in double, rounded to float. With exactMin the top index has no entry
// behind it; the last entry stands in for it.
float* CQuant_polynomial::Dequantize(float* out, const unsigned char* in, uint32_t count) const {
  const double range = std::fabs(m_max - m_min);
  return DequantizeEach(out, in, count, [this, range](unsigned int i) {
    const float low = m_inverse[i];
    const float high = i + 1 < m_inverse.size() ? m_inverse[i + 1] : m_inverse.back();
    const float width = high - low;
    return static_cast<float>((low + 0.5 * width) * range + static_cast<double>(m_min));
  });
}
