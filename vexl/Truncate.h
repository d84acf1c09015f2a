// Truncation of floating values to integers without undefined behaviour. Stream bytes and
// stored settings can hold any float, including NaN and infinities, so every float-to-integer
// conversion of the library goes through here.
#ifndef ORVANE_VEXL_TRUNCATE_H_
#define ORVANE_VEXL_TRUNCATE_H_

#include <cstdint>

// Truncates toward zero. A value outside the 64-bit range, or NaN, gives INT64_MIN, the
// "integer indefinite" answer of the processor's own conversion; narrower results take the
// low bits of this value.
inline int64_t TruncateToInt64(double value) {
  constexpr double kTwoTo63 = 9223372036854775808.0;
  if (value >= -kTwoTo63 && value < kTwoTo63) return static_cast<int64_t>(value);
  return INT64_MIN;
}

#endif  // ORVANE_VEXL_TRUNCATE_H_
