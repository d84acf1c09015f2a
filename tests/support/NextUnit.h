// Test helper: reproducible test data, a linear congruential step and its value in [0, 1).
#ifndef ORVANE_TESTS_SUPPORT_NEXTUNIT_H_
#define ORVANE_TESTS_SUPPORT_NEXTUNIT_H_

#include <cstdint>

inline float nextUnit(uint32_t& state) {
  state = state * 1664525u + 1013904223u;
  return static_cast<float>(state >> 8) / static_cast<float>(1 << 24);
}

#endif  // ORVANE_TESTS_SUPPORT_NEXTUNIT_H_
