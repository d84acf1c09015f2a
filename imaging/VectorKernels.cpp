#include "imaging/VectorKernels.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "imaging/PixelConstants.h"

// Every function here that touches a vector carries the target itself; nothing else of the
// library is built for AVX2 or AVX-512 (F, BW and VNNI).
#define ORVANE_AVX2 __attribute__((target("avx2")))
#define ORVANE_AVX512 __attribute__((target("avx2,avx512f,avx512bw,avx512vnni")))

// GCC 12 takes the undefined upper lanes inside its own AVX-512 conversion intrinsics for
// uninitialised values.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif

namespace {

// r, g, b of 8 pixels (24 bytes) as eight 32-bit lanes each. Pixels 0..3 come from bytes 0..11
// and pixels 4..7 from bytes 12..23, read as bytes 8..23, so nothing past the 24 bytes is read.
ORVANE_AVX2 inline void loadRgb8(const unsigned char* s, __m256i& r, __m256i& g, __m256i& b) {
  const __m256i bytes = _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s))),
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 8)), 1);
  const __m256i red =
      _mm256_setr_epi8(0, -1, -1, -1, 3, -1, -1, -1, 6, -1, -1, -1, 9, -1, -1, -1, 4, -1, -1, -1, 7,
                       -1, -1, -1, 10, -1, -1, -1, 13, -1, -1, -1);
  const __m256i one = _mm256_set1_epi32(1);
  r = _mm256_shuffle_epi8(bytes, red);
  g = _mm256_shuffle_epi8(bytes, _mm256_add_epi8(red, one));
  b = _mm256_shuffle_epi8(bytes, _mm256_add_epi8(red, _mm256_add_epi32(one, one)));
}

// Four or eight 32-bit lanes of one half as doubles.
ORVANE_AVX2 inline __m256d lowAsDouble(__m256i v) {
  return _mm256_cvtepi32_pd(_mm256_castsi256_si128(v));
}
ORVANE_AVX2 inline __m256d highAsDouble(__m256i v) {
  return _mm256_cvtepi32_pd(_mm256_extracti128_si256(v, 1));
}

// Eight 32-bit lanes, each 0..255 or beyond, saturated into 0..255 and stored as 8 bytes.
ORVANE_AVX2 inline void storeBytes8(__m128i low, __m128i high, unsigned char* dst) {
  const __m128i words = _mm_packs_epi32(low, high);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(words, words));
}

// Five pixels per 16 bytes; the sixteenth byte is written back unchanged. Each window is
// loaded before the one ahead of it is stored, so no load waits on an overlapping store.
ORVANE_AVX2 int swapLine(unsigned char* line, int width, const int order[3]) {
  if (width < 6) return 0;
  alignas(16) char mask[16];
  for (int p = 0; p < 5; ++p) {
    for (int k = 0; k < 3; ++k) mask[p * 3 + k] = static_cast<char>(p * 3 + order[k]);
  }
  mask[15] = 15;
  const __m128i m = _mm_load_si128(reinterpret_cast<const __m128i*>(mask));
  // Window x covers bytes 3 x .. 3 x + 15, inside the line while x + 6 <= width.
  int x = 0;
  __m128i window = _mm_loadu_si128(reinterpret_cast<const __m128i*>(line));
  for (; x + 11 <= width; x += 5) {
    const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(line + 3 * x + 15));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(line + 3 * x), _mm_shuffle_epi8(window, m));
    window = next;
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(line + 3 * x), _mm_shuffle_epi8(window, m));
  return x + 5;
}

// gray = (1225 r + 2404 g + 467 b) >> 12, exact in 32-bit lanes.
ORVANE_AVX2 int grayLine(const unsigned char* src, unsigned char* dst, int width) {
  const __m256i wr = _mm256_set1_epi32(1225), wg = _mm256_set1_epi32(2404),
                wb = _mm256_set1_epi32(467);
  int x = 0;
  for (; x + 8 <= width; x += 8) {
    __m256i r, g, b;
    loadRgb8(src + 3 * x, r, g, b);
    const __m256i sum =
        _mm256_add_epi32(_mm256_add_epi32(_mm256_mullo_epi32(r, wr), _mm256_mullo_epi32(g, wg)),
                         _mm256_mullo_epi32(b, wb));
    const __m256i gray = _mm256_srli_epi32(sum, 12);
    storeBytes8(_mm256_castsi256_si128(gray), _mm256_extracti128_si256(gray, 1), dst + x);
  }
  return x;
}

// The integer inputs of the colour conversion of 8 pixels (24 bytes), in 32-bit lanes:
// V = max(r, g, b), d = V - min(r, g, b). `grey` marks the lanes without colour (V == 0 or
// V == m, when d is 0 exactly); there d and V are set to 1, so that the divisions stay
// finite, and the caller clears hue and saturation.
// The hue rule of each lane is chosen here, as offset + first / d + second / d in the
// scalar code's order: with rc, gc, bc = (V - channel) * (1 / d), the rules bc - gc,
// (2 + rc) - bc and (4 - rc) + gc are (0 + bc) + -gc, (2 + rc) + -bc and (4 + -rc) + gc,
// the same roundings, since a negated integer times 1 / d is the negated product and
// 0 + bc is bc for bc >= 0.
struct SHsvInputs {
  __m256i v, safeDiff, safeV, offset, first, second, grey;
};

ORVANE_AVX2 inline SHsvInputs hsvInputs8(const unsigned char* src) {
  __m256i r, g, b;
  loadRgb8(src, r, g, b);
  SHsvInputs in;
  const __m256i one = _mm256_set1_epi32(1);
  in.v = _mm256_max_epi32(_mm256_max_epi32(r, g), b);
  const __m256i diff = _mm256_sub_epi32(in.v, _mm256_min_epi32(_mm256_min_epi32(r, g), b));
  in.grey = _mm256_cmpeq_epi32(diff, _mm256_setzero_si256());
  in.safeDiff = _mm256_blendv_epi8(diff, one, in.grey);
  in.safeV = _mm256_blendv_epi8(in.v, one, in.grey);
  const __m256i vr = _mm256_sub_epi32(in.v, r);
  const __m256i vg = _mm256_sub_epi32(in.v, g);
  const __m256i vb = _mm256_sub_epi32(in.v, b);
  const __m256i zero = _mm256_setzero_si256();
  // The last rule whose channel equals V wins: r, then g, then b.
  const __m256i isG = _mm256_cmpeq_epi32(g, in.v);
  const __m256i isB = _mm256_cmpeq_epi32(b, in.v);
  in.offset = _mm256_blendv_epi8(_mm256_and_si256(isG, _mm256_set1_epi32(2)),
                                 _mm256_set1_epi32(4), isB);
  in.first = _mm256_blendv_epi8(_mm256_blendv_epi8(vb, vr, isG), _mm256_sub_epi32(zero, vr), isB);
  in.second = _mm256_blendv_epi8(
      _mm256_sub_epi32(zero, _mm256_blendv_epi8(vg, vb, isG)), vg, isB);
  return in;
}

// Stores h, s, v bytes of 8 pixels (24 bytes); hue and saturation are cleared where grey.
ORVANE_AVX2 inline void storeHsv8(__m256i hue, __m256i sat, const SHsvInputs& in,
                                  unsigned char* d) {
  // Bytes h, s, v of each 32-bit lane, packed into 12 bytes per 128-bit half.
  const __m256i pack = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0,
                                        1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  hue = _mm256_andnot_si256(in.grey, hue);
  sat = _mm256_andnot_si256(in.grey, sat);
  const __m256i hsv =
      _mm256_or_si256(_mm256_or_si256(hue, _mm256_slli_epi32(sat, 8)), _mm256_slli_epi32(in.v, 16));
  const __m256i packed = _mm256_shuffle_epi8(hsv, pack);
  // Bytes 12..15 of the first store are garbage that the second overwrites.
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(packed));
  const __m128i high = _mm256_extracti128_si256(packed, 1);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 12), high);
  const uint32_t last = static_cast<uint32_t>(_mm_extract_epi32(high, 2));
  std::memcpy(d + 20, &last, 4);
}

// Saturation of 8 pixels from d = V - m and V (both 1 where grey). In double the scalar code
// computes S = trunc(255 (d / V) + half), half just below 1/2. The fractional part of
// 255 d / V is k / V, and besides 1/2 itself none lies within 1 / (2 255 254) of the rounding
// point 1 - half, far more than the double steps can err: S is 255 d / V rounded half down,
// floor((510 d + V - 1) / (2 V)). That quotient is at most 255, and unless whole it lies at
// least 1 / (2 V) below the next integer, which one float division cannot cross; both
// operands are exact in float. The tests check every colour.
ORVANE_AVX2 inline __m256i saturation8(__m256i diff, __m256i v) {
  const __m256i numerator = _mm256_add_epi32(
      _mm256_sub_epi32(_mm256_slli_epi32(diff, 9), _mm256_slli_epi32(diff, 1)),
      _mm256_sub_epi32(v, _mm256_set1_epi32(1)));
  return _mm256_cvttps_epi32(
      _mm256_div_ps(_mm256_cvtepi32_ps(numerator), _mm256_cvtepi32_ps(_mm256_add_epi32(v, v))));
}

// Hue of four pixels, as in the scalar code: in double, h = (offset + first * (1 / d)) +
// second * (1 / d) (see SHsvInputs); x = h * 255 * sixth, plus 255 if negative;
// H = trunc(x + half).
ORVANE_AVX2 inline __m128i hue4(__m256d diff, __m256d offset, __m256d first, __m256d second) {
  const __m256d k255 = _mm256_set1_pd(255.0);
  const __m256d inv = _mm256_div_pd(_mm256_set1_pd(1.0), diff);
  const __m256d h = _mm256_add_pd(_mm256_add_pd(offset, _mm256_mul_pd(first, inv)),
                                  _mm256_mul_pd(second, inv));
  __m256d angle = _mm256_mul_pd(_mm256_mul_pd(h, k255), _mm256_set1_pd(kHsvSixth));
  const __m256d negative = _mm256_cmp_pd(angle, _mm256_setzero_pd(), _CMP_LT_OQ);
  angle = _mm256_blendv_pd(angle, _mm256_add_pd(angle, k255), negative);
  return _mm256_cvttpd_epi32(_mm256_add_pd(angle, _mm256_set1_pd(kHsvHalf)));
}

ORVANE_AVX2 int hsvLine(const unsigned char* src, unsigned char* dst, int width) {
  int x = 0;
  for (; x + 8 <= width; x += 8) {
    const SHsvInputs in = hsvInputs8(src + 3 * x);
    const __m128i hueLow = hue4(lowAsDouble(in.safeDiff), lowAsDouble(in.offset),
                                lowAsDouble(in.first), lowAsDouble(in.second));
    const __m128i hueHigh = hue4(highAsDouble(in.safeDiff), highAsDouble(in.offset),
                                 highAsDouble(in.first), highAsDouble(in.second));
    storeHsv8(_mm256_setr_m128i(hueLow, hueHigh), saturation8(in.safeDiff, in.safeV), in,
              dst + 3 * x);
  }
  return x;
}

// The mask of the bytes of the next min(left, 16) pixels of a line.
inline __mmask64 lineBytes16(int left) {
  return left >= 16 ? (1ull << 48) - 1 : (1ull << (3 * left)) - 1;
}

// r, g, b of 16 pixels as 32-bit lanes, from the bytes of `bytes` only: pixels 4 k .. 4 k + 3
// (dwords 3 k .. 3 k + 2) go into 128-bit lane k, then byte 3 p + c of a lane to lane p of
// channel c.
ORVANE_AVX512 inline void loadRgb16(const unsigned char* s, __mmask64 bytes, __m512i& r,
                                    __m512i& g, __m512i& b) {
  const __m512i spread = _mm512_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0, 6, 7, 8, 0, 9, 10, 11, 0);
  const __m512i red = _mm512_broadcast_i32x4(
      _mm_setr_epi8(0, -1, -1, -1, 3, -1, -1, -1, 6, -1, -1, -1, 9, -1, -1, -1));
  const __m512i one = _mm512_set1_epi32(1);
  const __m512i rgb = _mm512_permutexvar_epi32(spread, _mm512_maskz_loadu_epi8(bytes, s));
  r = _mm512_shuffle_epi8(rgb, red);
  g = _mm512_shuffle_epi8(rgb, _mm512_add_epi8(red, one));
  b = _mm512_shuffle_epi8(rgb, _mm512_add_epi8(red, _mm512_add_epi32(one, one)));
}

// The same as grayLine, sixteen pixels a step; the last, partial step loads and stores only the
// line's bytes.
ORVANE_AVX512 int grayLineWide(const unsigned char* src, unsigned char* dst, int width) {
  for (int x = 0; x < width; x += 16) {
    const int left = width - x;
    __m512i r, g, b;
    loadRgb16(src + 3 * x, lineBytes16(left), r, g, b);
    const __m512i sum = _mm512_add_epi32(
        _mm512_add_epi32(_mm512_mullo_epi32(r, _mm512_set1_epi32(1225)),
                         _mm512_mullo_epi32(g, _mm512_set1_epi32(2404))),
        _mm512_mullo_epi32(b, _mm512_set1_epi32(467)));
    const __mmask64 pixels = left >= 16 ? 0xFFFF : (1ull << left) - 1;
    _mm512_mask_storeu_epi8(dst + x, pixels,
                            _mm512_castsi128_si512(_mm512_cvtepi32_epi8(_mm512_srli_epi32(sum, 12))));
  }
  return width;
}

// The hue of eight pixels, eight doubles wide, from the lanes of SHsvInputs (see hue4).
ORVANE_AVX512 inline __m256i hue8(__m256i diff, __m256i offset, __m256i first, __m256i second) {
  const __m512d k255 = _mm512_set1_pd(255.0);
  const __m512d inv = _mm512_div_pd(_mm512_set1_pd(1.0), _mm512_cvtepi32_pd(diff));
  const __m512d h =
      _mm512_add_pd(_mm512_add_pd(_mm512_cvtepi32_pd(offset),
                                  _mm512_mul_pd(_mm512_cvtepi32_pd(first), inv)),
                    _mm512_mul_pd(_mm512_cvtepi32_pd(second), inv));
  __m512d angle = _mm512_mul_pd(_mm512_mul_pd(h, k255), _mm512_set1_pd(kHsvSixth));
  const __mmask8 negative = _mm512_cmp_pd_mask(angle, _mm512_setzero_pd(), _CMP_LT_OQ);
  angle = _mm512_mask_blend_pd(negative, angle, _mm512_add_pd(angle, k255));
  return _mm512_cvttpd_epi32(_mm512_add_pd(angle, _mm512_set1_pd(kHsvHalf)));
}

// hue8 of the low and the high eight lanes.
ORVANE_AVX512 inline __m512i hue16(__m512i diff, __m512i offset, __m512i first, __m512i second) {
  const __m256i low = hue8(_mm512_castsi512_si256(diff), _mm512_castsi512_si256(offset),
                           _mm512_castsi512_si256(first), _mm512_castsi512_si256(second));
  const __m256i high =
      hue8(_mm512_extracti64x4_epi64(diff, 1), _mm512_extracti64x4_epi64(offset, 1),
           _mm512_extracti64x4_epi64(first, 1), _mm512_extracti64x4_epi64(second, 1));
  return _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
}

// The same as hsvLine, sixteen pixels a step with the hue eight doubles wide; the inputs are
// formed as in hsvInputs8 and the saturation as in saturation8, on 16 lanes. The last, partial
// step loads and stores only the line's bytes.
ORVANE_AVX512 int hsvLineWide(const unsigned char* src, unsigned char* dst, int width) {
  const __m512i one = _mm512_set1_epi32(1);
  const __m512i zero = _mm512_setzero_si512();
  // Bytes h, s, v of each 32-bit lane, 12 per 128-bit lane, then the lanes joined.
  const __m512i pack = _mm512_broadcast_i32x4(
      _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  const __m512i join = _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 0, 0, 0, 0);
  for (int x = 0; x < width; x += 16) {
    const __mmask64 bytes = lineBytes16(width - x);
    __m512i r, g, b;
    loadRgb16(src + 3 * x, bytes, r, g, b);
    const __m512i v = _mm512_max_epi32(_mm512_max_epi32(r, g), b);
    const __m512i diff = _mm512_sub_epi32(v, _mm512_min_epi32(_mm512_min_epi32(r, g), b));
    const __mmask16 grey = _mm512_cmpeq_epi32_mask(diff, zero);
    const __m512i safeDiff = _mm512_mask_blend_epi32(grey, diff, one);
    const __m512i safeV = _mm512_mask_blend_epi32(grey, v, one);
    const __m512i vr = _mm512_sub_epi32(v, r), vg = _mm512_sub_epi32(v, g),
                  vb = _mm512_sub_epi32(v, b);
    const __mmask16 isG = _mm512_cmpeq_epi32_mask(g, v);
    const __mmask16 isB = _mm512_cmpeq_epi32_mask(b, v);
    const __m512i offset = _mm512_mask_mov_epi32(_mm512_maskz_mov_epi32(isG, _mm512_set1_epi32(2)),
                                                 isB, _mm512_set1_epi32(4));
    const __m512i first = _mm512_mask_blend_epi32(isB, _mm512_mask_blend_epi32(isG, vb, vr),
                                                  _mm512_sub_epi32(zero, vr));
    const __m512i second = _mm512_mask_blend_epi32(
        isB, _mm512_sub_epi32(zero, _mm512_mask_blend_epi32(isG, vg, vb)), vg);
    const __m512i numerator = _mm512_add_epi32(
        _mm512_sub_epi32(_mm512_slli_epi32(safeDiff, 9), _mm512_slli_epi32(safeDiff, 1)),
        _mm512_sub_epi32(safeV, one));
    const __m512i sat = _mm512_cvttps_epi32(_mm512_div_ps(
        _mm512_cvtepi32_ps(numerator), _mm512_cvtepi32_ps(_mm512_add_epi32(safeV, safeV))));
    const __m512i hue = hue16(safeDiff, offset, first, second);
    const __m512i hsv = _mm512_or_si512(
        _mm512_maskz_mov_epi32(static_cast<__mmask16>(~grey),
                               _mm512_or_si512(hue, _mm512_slli_epi32(sat, 8))),
        _mm512_slli_epi32(v, 16));
    _mm512_mask_storeu_epi8(dst + 3 * x, bytes,
                            _mm512_permutexvar_epi32(join, _mm512_shuffle_epi8(hsv, pack)));
  }
  return width;
}

// The integer part of eight samples of the horizontal cubic, from packed 32-bit lanes holding
// the bytes p0, p1, p2, p3 (lowest first); exact, as byte pairs weighted into 16 bits and then
// added into 32:
//   d1 = p1 - p0, d2 = (p2 - p1) - d1 = p0 - 2 p1 + p2,
//   d3 = p1 - 2 p2 + p3 - d2 = -p0 + 3 p1 - 3 p2 + p3.
ORVANE_AVX2 inline void cubicDifferences8(__m256i packed, __m256i& p0, __m256i& d1, __m256i& d2,
                                          __m256i& d3) {
  const __m256i pairs = _mm256_set1_epi16(1);
  p0 = _mm256_and_si256(packed, _mm256_set1_epi32(255));
  d1 = _mm256_madd_epi16(_mm256_maddubs_epi16(packed, _mm256_set1_epi32(0x000001FF)), pairs);
  d2 = _mm256_madd_epi16(_mm256_maddubs_epi16(packed, _mm256_set1_epi32(0x0001FE01)), pairs);
  d3 = _mm256_madd_epi16(_mm256_maddubs_epi16(packed, _mm256_set1_epi32(0x01FD03FF)), pairs);
}

// Horizontal cubic of `count` packed samples (rounded up to a multiple of 8), with the weights
// of those samples: float(p0 + d3 c + d2 b + d1 a), in double and left to right.
ORVANE_AVX2 void cubicSamples(const int32_t* packed, int count, const double* wa, const double* wb,
                              const double* wc, float* out) {
  for (int e = 0; e < count; e += 8) {
    __m256i p0, d1, d2, d3;
    cubicDifferences8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(packed + e)), p0, d1, d2,
                      d3);
    __m128 result[2];
    for (int h = 0; h < 2; ++h) {
      const int at = e + 4 * h;
      const __m256d x0 = h ? highAsDouble(p0) : lowAsDouble(p0);
      const __m256d x1 = h ? highAsDouble(d1) : lowAsDouble(d1);
      const __m256d x2 = h ? highAsDouble(d2) : lowAsDouble(d2);
      const __m256d x3 = h ? highAsDouble(d3) : lowAsDouble(d3);
      __m256d sum = _mm256_add_pd(x0, _mm256_mul_pd(x3, _mm256_loadu_pd(wc + at)));
      sum = _mm256_add_pd(sum, _mm256_mul_pd(x2, _mm256_loadu_pd(wb + at)));
      sum = _mm256_add_pd(sum, _mm256_mul_pd(x1, _mm256_loadu_pd(wa + at)));
      result[h] = _mm256_cvtpd_ps(sum);
    }
    _mm256_storeu_ps(out + e, _mm256_setr_m128(result[0], result[1]));
  }
}

// Eight samples of the horizontal cubic from p0 and the differences, eight doubles wide:
// float(p0 + d3 c + d2 b + d1 a), left to right.
ORVANE_AVX512 inline void cubicOctetOf(__m512d p0, __m512d d1, __m512d d2, __m512d d3,
                                       const double* wa, const double* wb, const double* wc,
                                       float* out) {
  __m512d sum = _mm512_add_pd(p0, _mm512_mul_pd(d3, _mm512_loadu_pd(wc)));
  sum = _mm512_add_pd(sum, _mm512_mul_pd(d2, _mm512_loadu_pd(wb)));
  sum = _mm512_add_pd(sum, _mm512_mul_pd(d1, _mm512_loadu_pd(wa)));
  _mm256_storeu_ps(out, _mm512_cvtpd_ps(sum));
}

// The same from the integers.
ORVANE_AVX512 inline void cubicOctet(__m256i p0, __m256i d1, __m256i d2, __m256i d3,
                                     const double* wa, const double* wb, const double* wc,
                                     float* out) {
  cubicOctetOf(_mm512_cvtepi32_pd(p0), _mm512_cvtepi32_pd(d1), _mm512_cvtepi32_pd(d2),
               _mm512_cvtepi32_pd(d3), wa, wb, wc, out);
}

// The same as cubicSamples, eight doubles wide.
ORVANE_AVX512 void cubicSamplesWide(const int32_t* packed, int count, const double* wa,
                                    const double* wb, const double* wc, float* out) {
  for (int e = 0; e < count; e += 8) {
    __m256i p0, d1, d2, d3;
    cubicDifferences8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(packed + e)), p0, d1, d2,
                      d3);
    cubicOctet(p0, d1, d2, d3, wa + e, wb + e, wc + e, out + e);
  }
}

// Three channels: the 16 bytes from the first of the four pixels hold all twelve samples; a
// shuffle packs the four samples of each channel into one lane. Only pixels whose 16 bytes
// lie inside the line are taken.
ORVANE_AVX2 int packRow3(const unsigned char* row, const unsigned char* next, int srcBytes,
                         const int* xFirst, int outWidth, int32_t* packed) {
  int done = outWidth;
  while (done > 0 && xFirst[done - 1] + 16 > srcBytes) --done;
  const __m128i gather = _mm_setr_epi8(0, 3, 6, 9, 1, 4, 7, 10, 2, 5, 8, 11, -1, -1, -1, -1);
  for (int x = 0; x < done; ++x) {
    if (next) _mm_prefetch(reinterpret_cast<const char*>(next + xFirst[x]), _MM_HINT_T0);
    const __m128i window = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + xFirst[x]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(packed + 3 * x), _mm_shuffle_epi8(window, gather));
  }
  return done;
}

// The horizontal cubic of a 3-channel line: packed in batches of 32 pixels, so that the loads
// of one batch overlap the arithmetic of the last.
ORVANE_AVX2 int cubicLine3(const unsigned char* row, const unsigned char* next, int srcBytes,
                           const int* xFirst, int outWidth, const double* wa, const double* wb,
                           const double* wc, float* out) {
  const int batch = 32;
  int32_t packed[3 * batch + 8];
  int done = 0;
  while (done < outWidth) {
    const int count = outWidth - done < batch ? outWidth - done : batch;
    const int at = 3 * done;
    const int taken = packRow3(row, next, srcBytes, xFirst + done, count, packed);
    cubicSamples(packed, 3 * taken, wa + at, wb + at, wc + at, out + at);
    done += taken;
    if (taken < count) break;
  }
  return done;
}

// The 16 bytes from the first neighbour of each of four pixels, one pixel per 128-bit lane.
ORVANE_AVX512 inline __m512i loadWindows4(const unsigned char* row, const int* first) {
  const auto at = [&](int k) { return reinterpret_cast<const __m128i*>(row + first[k]); };
  __m512i v = _mm512_castsi128_si512(_mm_loadu_si128(at(0)));
  v = _mm512_inserti32x4(v, _mm_loadu_si128(at(1)), 1);
  v = _mm512_inserti32x4(v, _mm_loadu_si128(at(2)), 2);
  return _mm512_inserti32x4(v, _mm_loadu_si128(at(3)), 3);
}

// Sixteen pixels of cubicLine3Wide, whose neighbours start first[0..15] bytes into the line;
// the first `samples` samples (rounded up to a multiple of 8) are written. A shuffle packs the
// four neighbours of each channel into a 32-bit lane within each pixel's 128-bit lane (the
// fourth lane idle); a permute then gathers each group of 8 samples, in pixel-major order, into
// the low 32 bits of the 64-bit lanes of a vector. There the dot products of the four bytes
// (p0 and the differences of cubicDifferences8) are added to the bits of the double
// 2^52 + 2048, whose last 32 bits hold integers exactly: subtracting 2^52 + 2048 leaves each
// as a double, exact, without a conversion.
ORVANE_AVX512 inline void cubicStep16(const unsigned char* row, const int* first, int samples,
                                      const double* wa, const double* wb, const double* wc,
                                      float* out) {
  const __m512i gather = _mm512_broadcast_i32x4(
      _mm_setr_epi8(0, 3, 6, 9, 1, 4, 7, 10, 2, 5, 8, 11, -1, -1, -1, -1));
  // Sample s of the step is lane 4 (s / 3) + s % 3 of the four vectors taken as one. Groups
  // 0 and 3 start a vector, groups 2 and 5 lie in the second half of one, and groups 1 and 4
  // span two neighbouring vectors. The weights of the upper 32 bits are 0.
  const __m512i start = _mm512_setr_epi32(0, 0, 1, 0, 2, 0, 4, 0, 5, 0, 6, 0, 8, 0, 9, 0);
  const __m512i span = _mm512_setr_epi32(10, 0, 12, 0, 13, 0, 14, 0, 16, 0, 17, 0, 18, 0, 20, 0);
  const __m512i end = _mm512_setr_epi32(5, 0, 6, 0, 8, 0, 9, 0, 10, 0, 12, 0, 13, 0, 14, 0);
  const __m512i weights[4] = {
      _mm512_set1_epi64(0x00000001), _mm512_set1_epi64(0x000001FF), _mm512_set1_epi64(0x0001FE01),
      _mm512_set1_epi64(0x01FD03FF)};
  const __m512i magic = _mm512_set1_epi64(0x4330000000000800);
  const __m512d offset = _mm512_set1_pd(4503599627372544.0);
  __m512i quad[4];
  for (int q = 0; q < 4; ++q) {
    quad[q] = _mm512_shuffle_epi8(loadWindows4(row, first + 4 * q), gather);
  }
  for (int o = 0; o < 6 && 8 * o < samples; ++o) {
    const int q = o / 3 * 2;
    const __m512i packed = o % 3 == 0   ? _mm512_permutexvar_epi32(start, quad[q])
                           : o % 3 == 1 ? _mm512_permutex2var_epi32(quad[q], span, quad[q + 1])
                                        : _mm512_permutexvar_epi32(end, quad[q + 1]);
    __m512d d[4];
    for (int k = 0; k < 4; ++k) {
      d[k] = _mm512_sub_pd(_mm512_castsi512_pd(_mm512_dpbusd_epi32(magic, packed, weights[k])),
                           offset);
    }
    const int e = 8 * o;
    cubicOctetOf(d[0], d[1], d[2], d[3], wa + e, wb + e, wc + e, out + e);
  }
}

// The same as cubicLine3, sixteen pixels (48 samples) a step, fused. In the last, partial step
// the pixels beyond the line's repeat its last one; their results land in the 7 entries
// beyond.
ORVANE_AVX512 int cubicLine3Wide(const unsigned char* row, const unsigned char* next,
                                 int srcBytes, const int* xFirst, int outWidth, const double* wa,
                                 const double* wb, const double* wc, float* out) {
  int inside = outWidth;
  while (inside > 0 && xFirst[inside - 1] + 16 > srcBytes) --inside;
  int x = 0;
  for (; x < inside; x += 16) {
    // The next line's samples go to the outer caches only: on a 4000 by 3000 photo that ran
    // 2 to 3 % faster than fetching them all the way in.
    if (next) {
      const int end = x + 16 < inside ? x + 16 : inside;
      for (int k = x; k < end; ++k) {
        _mm_prefetch(reinterpret_cast<const char*>(next + xFirst[k]), _MM_HINT_T2);
      }
    }
    if (x + 16 > inside) break;
    cubicStep16(row, xFirst + x, 48, wa + 3 * x, wb + 3 * x, wc + 3 * x, out + 3 * x);
  }
  if (x < inside) {
    int first[16];
    for (int k = 0; k < 16; ++k) first[k] = xFirst[x + k < inside ? x + k : inside - 1];
    cubicStep16(row, first, 3 * (inside - x), wa + 3 * x, wb + 3 * x, wc + 3 * x, out + 3 * x);
  }
  return inside;
}

// One channel: the four samples of a pixel are four consecutive bytes.
ORVANE_AVX2 int packRow1(const unsigned char* row, const int* xFirst, int outWidth,
                         int32_t* packed) {
  for (int x = 0; x < outWidth; ++x) std::memcpy(&packed[x], row + xFirst[x], 4);
  return outWidth;
}

// Vertical cubic pass, in double and left to right:
//   d1 = p1 - p0, d2 = (p2 - p1) - d1, d3 = p1 - 2 p2 + p3 - d2,
//   byte = clamp(trunc(p0 + d3 c + d2 b + d1 a + 1e-7), 0, 255).
// The two saturating packs are the clamp.
ORVANE_AVX2 int cubicColumns(const float* const* lines, int n, double a, double b, double c,
                             unsigned char* dst) {
  const __m256d wa = _mm256_set1_pd(a), wb = _mm256_set1_pd(b), wc = _mm256_set1_pd(c);
  const __m256d two = _mm256_set1_pd(2.0), guard = _mm256_set1_pd(kGuard);
  int j = 0;
  for (; j + 8 <= n; j += 8) {
    __m128i bytes[2];
    for (int h = 0; h < 2; ++h) {
      const int at = j + 4 * h;
      const __m256d p0 = _mm256_cvtps_pd(_mm_loadu_ps(lines[0] + at));
      const __m256d p1 = _mm256_cvtps_pd(_mm_loadu_ps(lines[1] + at));
      const __m256d p2 = _mm256_cvtps_pd(_mm_loadu_ps(lines[2] + at));
      const __m256d p3 = _mm256_cvtps_pd(_mm_loadu_ps(lines[3] + at));
      const __m256d d1 = _mm256_sub_pd(p1, p0);
      const __m256d d2 = _mm256_sub_pd(_mm256_sub_pd(p2, p1), d1);
      const __m256d d3 =
          _mm256_sub_pd(_mm256_add_pd(_mm256_sub_pd(p1, _mm256_mul_pd(two, p2)), p3), d2);
      __m256d sum = _mm256_add_pd(p0, _mm256_mul_pd(d3, wc));
      sum = _mm256_add_pd(sum, _mm256_mul_pd(d2, wb));
      sum = _mm256_add_pd(sum, _mm256_mul_pd(d1, wa));
      bytes[h] = _mm256_cvttpd_epi32(_mm256_add_pd(sum, guard));
    }
    storeBytes8(bytes[0], bytes[1], dst + j);
  }
  return j;
}

// Eight samples of the vertical cubic from `at` on, eight doubles wide, truncated to ints.
ORVANE_AVX512 inline __m256i cubicColumnOctet(const float* const* lines, int at, __m512d wa,
                                              __m512d wb, __m512d wc) {
  const __m512d p0 = _mm512_cvtps_pd(_mm256_loadu_ps(lines[0] + at));
  const __m512d p1 = _mm512_cvtps_pd(_mm256_loadu_ps(lines[1] + at));
  const __m512d p2 = _mm512_cvtps_pd(_mm256_loadu_ps(lines[2] + at));
  const __m512d p3 = _mm512_cvtps_pd(_mm256_loadu_ps(lines[3] + at));
  const __m512d d1 = _mm512_sub_pd(p1, p0);
  const __m512d d2 = _mm512_sub_pd(_mm512_sub_pd(p2, p1), d1);
  const __m512d d3 = _mm512_sub_pd(
      _mm512_add_pd(_mm512_sub_pd(p1, _mm512_mul_pd(_mm512_set1_pd(2.0), p2)), p3), d2);
  __m512d sum = _mm512_add_pd(p0, _mm512_mul_pd(d3, wc));
  sum = _mm512_add_pd(sum, _mm512_mul_pd(d2, wb));
  sum = _mm512_add_pd(sum, _mm512_mul_pd(d1, wa));
  return _mm512_cvttpd_epi32(_mm512_add_pd(sum, _mm512_set1_pd(kGuard)));
}

// The same as cubicColumns, sixteen samples a step, eight doubles wide; the clamp is a
// maximum with 0 and the saturating narrowing to bytes.
ORVANE_AVX512 int cubicColumnsWide(const float* const* lines, int n, double a, double b, double c,
                                   unsigned char* dst) {
  const __m512d wa = _mm512_set1_pd(a), wb = _mm512_set1_pd(b), wc = _mm512_set1_pd(c);
  int j = 0;
  for (; j + 16 <= n; j += 16) {
    const __m512i ints =
        _mm512_inserti64x4(_mm512_castsi256_si512(cubicColumnOctet(lines, j, wa, wb, wc)),
                           cubicColumnOctet(lines, j + 8, wa, wb, wc), 1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + j),
                     _mm512_cvtusepi32_epi8(_mm512_max_epi32(ints, _mm512_setzero_si512())));
  }
  if (j + 8 <= n) {
    const __m256i ints = cubicColumnOctet(lines, j, wa, wb, wc);
    storeBytes8(_mm256_castsi256_si128(ints), _mm256_extracti128_si256(ints, 1), dst + j);
    j += 8;
  }
  return j;
}

// Channel `masks` picks of 32 pixels (96 bytes) as 32 bytes, pixel j in byte j: each half
// gathers its 16 pixels out of three 16-byte windows, one shuffle per window pair.
ORVANE_AVX2 inline __m256i channelOf32(const unsigned char* s, const __m256i masks[3]) {
  __m256i v = _mm256_setzero_si256();
  for (int k = 0; k < 3; ++k) {
    const __m256i pair = _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 16 * k))),
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 48 + 16 * k)), 1);
    v = _mm256_or_si256(v, _mm256_shuffle_epi8(pair, masks[k]));
  }
  return v;
}

// Adds the byte lanes of each acc[g] to above[ks[g]] and clears them.
template <int G>
ORVANE_AVX2 void emptyCounts(__m256i acc[G], const int* ks, long long* above) {
  for (int g = 0; g < G; ++g) {
    const __m256i sums = _mm256_sad_epu8(acc[g], _mm256_setzero_si256());
    alignas(32) long long parts[4];
    _mm256_store_si256(reinterpret_cast<__m256i*>(parts), sums);
    above[ks[g]] += parts[0] + parts[1] + parts[2] + parts[3];
    acc[g] = _mm256_setzero_si256();
  }
}

// Counts the channel's samples of every 32-pixel chunk of the region against G levels: acc[g]
// lane j gains 1 where the sample exceeds bound[g]. A line that is not a whole number of
// chunks ends with the chunk of its last 32 pixels, counted only in the lanes of `keep`,
// which no chunk before it covered. The byte lanes are emptied before they can overflow.
template <int G>
ORVANE_AVX2 void countLevels(const unsigned char* src, int srcStep, int width, int height,
                             const __m256i masks[3], const __m256i bound[G], __m256i keep,
                             const int* ks, long long* above) {
  const int chunks = width / 32;
  const bool tail = width % 32 != 0;
  const __m256i flip = _mm256_set1_epi8(static_cast<char>(0x80));
  __m256i acc[G];
  for (__m256i& a : acc) a = _mm256_setzero_si256();
  int run = 0;
  for (int y = 0; y < height; ++y) {
    const unsigned char* line = src + static_cast<ptrdiff_t>(y) * srcStep;
    for (int chunk = 0; chunk < chunks; ++chunk) {
      const __m256i v = _mm256_xor_si256(channelOf32(line + 96 * chunk, masks), flip);
      for (int g = 0; g < G; ++g) acc[g] = _mm256_sub_epi8(acc[g], _mm256_cmpgt_epi8(v, bound[g]));
    }
    if (tail) {
      const __m256i v = _mm256_xor_si256(channelOf32(line + 3 * (width - 32), masks), flip);
      for (int g = 0; g < G; ++g) {
        acc[g] = _mm256_sub_epi8(acc[g], _mm256_and_si256(_mm256_cmpgt_epi8(v, bound[g]), keep));
      }
    }
    // A lane gains at most chunks + 1 per line.
    run += chunks + 1;
    if (run + chunks + 1 > 255) {
      emptyCounts<G>(acc, ks, above);
      run = 0;
    }
  }
  emptyCounts<G>(acc, ks, above);
}

// v >= t is v - 128 > t - 1 - 128 in signed bytes. Levels are counted up to 8 at a time.
ORVANE_AVX2 int countAtLeast(const unsigned char* src, int srcStep, int width, int height,
                             int channel, const int levels[kMaxHistogramLevels], int count,
                             long long above[kMaxHistogramLevels]) {
  const int chunks = width / 32;
  // Byte lanes count up to 255 between emptyings, which happen between lines.
  if (chunks == 0 || chunks >= 255) return 0;
  // Only levels inside 1..255 need counting; 8 slots of padding count nothing.
  int ks[kMaxHistogramLevels + 8];
  int counted = 0;
  for (int k = 0; k < count; ++k) {
    if (levels[k] >= 1 && levels[k] <= 255) ks[counted++] = k;
  }
  for (int g = counted; g < counted + 8; ++g) ks[g] = 0;
  // Window k of a half holds bytes 16 k .. 16 k + 15 of its 48; pixel p's sample is byte
  // 3 p + channel.
  alignas(32) char bytes[32];
  __m256i masks[3];
  for (int k = 0; k < 3; ++k) {
    for (int p = 0; p < 16; ++p) {
      const int at = 3 * p + channel - 16 * k;
      bytes[p] = bytes[p + 16] = static_cast<char>(at >= 0 && at < 16 ? at : -1);
    }
    masks[k] = _mm256_load_si256(reinterpret_cast<const __m256i*>(bytes));
  }
  // Pixels of the last chunk that no whole chunk covered.
  for (int j = 0; j < 32; ++j) bytes[j] = static_cast<char>(j >= 32 - width % 32 ? -1 : 0);
  const __m256i keep = _mm256_load_si256(reinterpret_cast<const __m256i*>(bytes));
  for (int first = 0; first < counted; first += 8) {
    const int used = counted - first < 8 ? counted - first : 8;
    // (t - 1) - 128; 127 where nothing is counted, since no sample exceeds it.
    __m256i bound[8];
    for (int g = 0; g < 8; ++g) {
      bound[g] = _mm256_set1_epi8(static_cast<char>(g < used ? levels[ks[first + g]] - 1 - 128 : 127));
    }
    if (used > 4) {
      countLevels<8>(src, srcStep, width, height, masks, bound, keep, ks + first, above);
    } else {
      countLevels<4>(src, srcStep, width, height, masks, bound, keep, ks + first, above);
    }
  }
  return width;
}

const SVectorKernels kAvx2 = {swapLine,   grayLine, hsvLine,      countAtLeast,
                              cubicLine3, packRow1, cubicSamples, cubicColumns};
const SVectorKernels kAvx512 = {swapLine,       grayLineWide, hsvLineWide,      countAtLeast,
                                cubicLine3Wide, packRow1, cubicSamplesWide, cubicColumnsWide};

}  // namespace

const SVectorKernels* avx2Kernels() { return &kAvx2; }
const SVectorKernels* avx512Kernels() { return &kAvx512; }

#else

const SVectorKernels* avx2Kernels() { return nullptr; }
const SVectorKernels* avx512Kernels() { return nullptr; }

#endif
