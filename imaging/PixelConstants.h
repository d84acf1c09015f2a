// Constants of the pixel arithmetic, shared by the portable and the vectorised column so that
// both compute with the same values. The float constants are given by bit pattern and used
// widened to double.
#ifndef ORVANE_IMAGING_PIXELCONSTANTS_H_
#define ORVANE_IMAGING_PIXELCONSTANTS_H_

#include "vexl/ByteOrder.h"

// Colour conversion: just below one half, and one sixth.
inline const double kHsvHalf = floatFromBits(0x3EFFFFDE);   // 0.4999989867
inline const double kHsvSixth = floatFromBits(0x3E2AAAAB);  // 0.1666666716

// 0.33333334, the float constant of the cubic's third difference.
inline const double kThird = floatFromBits(0x3EAAAAAB);

// Guards exact values against truncating a step short.
constexpr double kGuard = 1e-7;

#endif  // ORVANE_IMAGING_PIXELCONSTANTS_H_
