// CQuant_polynomial: a quantiser along the cubic p(t) = m_cubic t^3 + m_quadratic t^2 +
// m_linear t, which rises from p(0) = 0 to p(1) = 1 with the slopes m_risingAtZero and
// m_risingAtOne at its ends. Dequantising looks the index up in m_inverse, a table of the
// first grid point (step 0.001) at which p reaches each index's level, built once.
#ifndef ORVANE_FEATURE_CQUANT_POLYNOMIAL_H_
#define ORVANE_FEATURE_CQUANT_POLYNOMIAL_H_

#include <vector>

#include "feature/CQuant.h"

class CQuant_polynomial : public CQuant {
 public:
  // Besides the integer throws of CQuant, throws a std::string "rising must be greater or
  // equal zero" for a negative slope and "polynomial doesn't rise in all points between 0
  // and 1" for a curve with a stationary point strictly inside (0, 1).
  CQuant_polynomial(float min, float max, int levels, bool exactMin, float risingAtZero,
                    float risingAtOne);
  ~CQuant_polynomial() override;

  float GetRisingAtZero() const override;
  float GetRisingAtOne() const override;
  unsigned char* Quantize(unsigned char* out, const float* in, uint32_t count) const override;
  float* Dequantize(float* out, const unsigned char* in, uint32_t count) const override;

  float m_risingAtZero;
  float m_risingAtOne;
  float m_cubic;
  float m_quadratic;
  float m_linear;
  std::vector<float> m_inverse;

 private:
  // p(t) in float, evaluated left to right: m_cubic*t*t*t + m_quadratic*t*t + m_linear*t.
  float Curve(float t) const;
  void CheckRising() const;
  void BuildInverse();
};

#endif  // ORVANE_FEATURE_CQUANT_POLYNOMIAL_H_
