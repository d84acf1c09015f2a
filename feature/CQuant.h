// CQuant: maps float feature values to one-byte indices and back over [m_min, m_max] with
// m_levels indices. It is the base of the quantiser family and itself the linear curve.
// Every curve clips alike: a value not above m_min gives index 0, one not below m_max gives
// m_levels - 1 (NaN gives 0), and only values strictly inside go through the curve. Only the
// low byte of an index is stored. Quantisers are immutable after construction.
#ifndef ORVANE_FEATURE_CQUANT_H_
#define ORVANE_FEATURE_CQUANT_H_

#include <cstdint>

class CQuant {
 public:
  // Throws the integer -1 if max is not above min and -2 if levels is below 1. With exactMin
  // index 0 stands for min exactly and the step spreads the range over one interval less.
  CQuant(float min, float max, int levels, bool exactMin);
  virtual ~CQuant();

  virtual float GetRisingAtZero() const;
  virtual float GetRisingAtOne() const;
  // Writes count indices for count values; returns out.
  virtual unsigned char* Quantize(unsigned char* out, const float* in, uint32_t count) const;
  // Writes count values for count indices; returns out. Throws the integer -3 at the first
  // index not below m_levels, with the values before it written.
  virtual float* Dequantize(float* out, const unsigned char* in, uint32_t count) const;

  float m_min;
  float m_max;
  int m_levels;
  bool m_exactMin;
  float m_step;

 protected:
  // Applies index(x) to every value that the clipping leaves to the curve.
  template <typename Curve>
  unsigned char* QuantizeEach(unsigned char* out, const float* in, uint32_t count,
                              Curve index) const {
    for (uint32_t k = 0; k < count; ++k) {
      const float x = in[k];
      int64_t i;
      if (!(x > m_min)) {
        i = 0;
      } else if (!(x < m_max)) {
        i = m_levels - 1;
      } else {
        i = index(x);
      }
      out[k] = static_cast<unsigned char>(i);
    }
    return out;
  }

  // Applies value(i) to every index after the range check.
  template <typename Curve>
  float* DequantizeEach(float* out, const unsigned char* in, uint32_t count, Curve value) const {
    for (uint32_t k = 0; k < count; ++k) {
      if (in[k] >= m_levels) throw -3;
      out[k] = (m_exactMin && in[k] == 0) ? m_min : value(in[k]);
    }
    return out;
  }

  // The linear curve, shared with the logarithmic one which applies it to log10 of a value.
  int64_t LinearIndex(float x) const;
  float LinearValue(unsigned int index) const;
  // floor in double precision, cut to an integer.
  static int64_t Floor(double value);
};

#endif  // ORVANE_FEATURE_CQUANT_H_
