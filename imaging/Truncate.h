// truncToInt: conversion of a double to int by truncation toward zero, as the processor's own
// conversion does it. Values outside the int range and NaN give INT_MIN instead of undefined
// behaviour, so odd sizes from a caller end in a size check rather than in a crash.
#ifndef ORVANE_IMAGING_TRUNCATE_H_
#define ORVANE_IMAGING_TRUNCATE_H_

#include <climits>

inline int truncToInt(double v) {
  if (!(v > -2147483649.0 && v < 2147483648.0)) return INT_MIN;
  return static_cast<int>(v);
}

#endif  // ORVANE_IMAGING_TRUNCATE_H_
