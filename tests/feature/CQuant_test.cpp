#include "feature/CQuant.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <tuple>

#include "feature/CQuant_log.h"
#include "feature/CQuant_polynomial.h"
#include "feature/CQuant_sin.h"
#include "tests/support/ThrownText.h"

namespace {

unsigned char Q(const CQuant& q, float x) {
  unsigned char out = 0xee;
  q.Quantize(&out, &x, 1);
  return out;
}

float D(const CQuant& q, unsigned char i) {
  float out = -1.0f;
  q.Dequantize(&out, &i, 1);
  return out;
}

template <typename F>
int IntegerThrown(F f) {
  try {
    f();
  } catch (int code) {
    return code;
  }
  return 0;
}

TEST(CQuantTest, EachCurveAtItsEdgesAndInside) {
  const CQuant lin(0.0f, 1.0f, 256, false), linExact(0.0f, 1.0f, 256, true);
  const CQuant_log log(-9.0f, -1.0f, 256, false), logExact(-9.0f, -1.0f, 256, true);
  const CQuant_sin sin(0.0f, 1.0f, 256, false);
  const CQuant_sin sinExact(0.0f, 1.0f, 256, true);  // exactMin does not change the multiplier
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const struct { const CQuant* q; float x; int index; } quantised[] = {
      {&lin, 0.0f, 0}, {&lin, 0.5f, 128}, {&lin, 1.0f, 255}, {&lin, 7.0f, 255}, {&lin, -7.0f, 0},
      {&lin, nan, 0}, {&lin, 0.99999994f, 255},
      {&linExact, 0.5f, 127},  // floor(0.5 * 255.00000x)
      {&log, 0.0f, 0}, {&log, -1.0f, 0}, {&log, 1e-9f, 0}, {&log, -inf, 0},
      {&log, 1e-5f, 128},  // log10 -5 lies 4 of 8 decades up
      {&log, 0.5f, 255},
      {&sinExact, 0.5f, 127},  // sin^2(pi/4) is 0.49999999999999989 in double
      {&sinExact, 0.25f, 37}, {&sinExact, 1.0f, 255},
  };
  for (const auto& c : quantised) EXPECT_EQ(Q(*c.q, c.x), c.index) << c.x;
  const struct { const CQuant* q; unsigned char index; float value; } values[] = {
      {&lin, 255, 0.998046875f}, {&lin, 0, 0.001953125f}, {&linExact, 0, 0.0f},
      {&linExact, 1, static_cast<float>(1.5 * static_cast<double>(1.0f / 255))},
      {&log, 0, static_cast<float>(std::pow(10.0, -9 + 0.5 * 0.03125))},
      {&logExact, 0, static_cast<float>(1e-9)},  // index 0 is 10^m_min
      {&sinExact, 0, 0.0f},
      {&sin, 128,
       static_cast<float>(std::asin(std::sqrt(128.5 / 256)) * (2.0 / 3.14159265358979323846))},
  };
  for (const auto& c : values) EXPECT_EQ(D(*c.q, c.index), c.value) << int{c.index};
}

TEST(CQuantTest, ConstructorsAndRangeChecksThrowIntegers) {
  EXPECT_EQ(IntegerThrown([] { CQuant(1.0f, 1.0f, 8, false); }), -1);
  EXPECT_EQ(IntegerThrown([] { CQuant_sin(0.0f, 1.0f, 0, false); }), -2);
  EXPECT_EQ(IntegerThrown([] { CQuant_polynomial(2.0f, 1.0f, 0, false, -1.0f, 1.0f); }), -1);
  const unsigned char in[3] = {1, 4, 2};
  float out[3] = {0, 0, 0};
  EXPECT_EQ(IntegerThrown([&] { CQuant_log(-9.0f, -1.0f, 4, false).Dequantize(out, in, 3); }), -3);
  EXPECT_TRUE(out[0] != 0.0f && out[2] == 0.0f) << "values before the bad index are written";
  // One level with exactMin: the step is infinite, every inside value quantises to 0.
  EXPECT_EQ(Q(CQuant(0.0f, 1.0f, 1, true), 0.5f), 0);
}

TEST(CQuantPolynomialTest, CoefficientsAndMonotonyCheck) {
  const CQuant_polynomial line(0.0f, 1.0f, 256, false, 1.0f, 1.0f);
  EXPECT_TRUE(line.m_cubic == 0.0f && line.m_quadratic == 0.0f && line.m_linear == 1.0f);
  const CQuant_polynomial flatEnds(0.0f, 1.0f, 256, false, 0.0f, 0.0f);  // 3t^2 - 2t^3
  EXPECT_TRUE(flatEnds.m_cubic == -2.0f && flatEnds.m_quadratic == 3.0f);
  EXPECT_EQ(flatEnds.GetRisingAtOne(), 0.0f);
  EXPECT_EQ(CQuant(0.0f, 1.0f, 2, false).GetRisingAtOne(), 1.0f);
  // A double root of the slope at an edge (3, 0 and 0, 3) or inside (3, 3: a flat inflection
  // at 0.5) is accepted.
  const struct { float atZero, atOne; const char* text; } slopes[] = {
      {5.0f, 0.0f, "polynomial doesn't rise in all points between 0 and 1"},
      {1.0f, -0.1f, "rising must be greater or equal zero"},
      {3.0f, 0.0f, ""}, {0.0f, 3.0f, ""}, {3.0f, 3.0f, ""}};
  for (const auto& c : slopes) {
    EXPECT_EQ(thrownText([&] { CQuant_polynomial(0.0f, 1.0f, 256, false, c.atZero, c.atOne); }),
              c.text)
        << c.atZero << " " << c.atOne;
  }
}

// The inverse table is built in exactly 1000 steps of 0.001, at most one entry per step; with
// exactMin it has one entry less and the top index uses the last one.
TEST(CQuantPolynomialTest, InverseTableAndExactMin) {
  const CQuant_polynomial line(0.0f, 1.0f, 4, false, 1.0f, 1.0f);
  ASSERT_EQ(line.m_inverse.size(), 5u);
  EXPECT_EQ(std::make_pair(line.m_inverse[0], line.m_inverse[4]), std::make_pair(0.0f, 1.0f));
  EXPECT_NEAR(line.m_inverse[2], 0.5f, 0.0011f);
  EXPECT_EQ(D(line, 2),
            static_cast<float>(line.m_inverse[2] + 0.5 * (line.m_inverse[3] - line.m_inverse[2])));
  const CQuant_polynomial many(0.0f, 1.0f, 2000, false, 1.0f, 1.0f);
  EXPECT_GT(many.m_inverse[999], 0.99f);
  EXPECT_EQ(many.m_inverse[1000] + many.m_inverse[1999], 0.0f) << "1000 steps fill 1000 entries";
  // Slope 3 at 0 asks for more than one entry per step at first.
  EXPECT_EQ(CQuant_polynomial(0.0f, 1.0f, 1000, false, 3.0f, 0.0f).m_inverse[3], 0.003f);
  const CQuant_polynomial exact(2.0f, 4.0f, 8, true, 1.0f, 1.0f);
  EXPECT_EQ(exact.m_inverse.size(), 8u);
  EXPECT_EQ(std::make_tuple(D(exact, 7), D(exact, 0), Q(exact, 3.0f), Q(exact, 5.0f)),
            std::make_tuple(4.0f, 2.0f, 3, 7));  // 3 is floor(p(0.5) * 7)
}

}  // namespace
