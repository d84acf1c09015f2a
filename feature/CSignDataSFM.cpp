#include "feature/CSignDataSFM.h"

#include <climits>
#include <cmath>

#include "feature/FeatureObjException.h"
#include "feature/FeatureSettings.h"
#include "vexl/Truncate.h"

namespace {

// Highest band of a lower edge, and of an upper edge.
constexpr int32_t kLowestBand = 0;
constexpr int32_t kHighestLowBand = 19;
constexpr int32_t kHighestHighBand = 23;

// Quarter-octave band of an edge f Hz around 1 kHz, where band 8 starts:
//   band = trunc(log2(f * 0.001) * 4.0 + offset),
// everything in double, log2(x) = ln(x) / ln(2.0), truncated toward zero. An offset of 8.5
// rounds a lower edge to the nearest band, 7.5 an upper edge to the nearest band end. f
// counts as signed; 0 or a negative f has no logarithm and gives INT32_MIN, which no range
// check lets pass.
int32_t BandOfEdge(uint32_t f, double offset) {
  const double band = std::log(static_cast<int32_t>(f) * 0.001) / std::log(2.0) * 4.0 + offset;
  const int64_t truncated = TruncateToInt64(band);
  if (truncated < INT32_MIN || truncated > INT32_MAX) return INT32_MIN;
  return static_cast<int32_t>(truncated);
}

// The edge of a band in Hz: trunc(2^((band - origin) * 0.25) * 1000.0), in double,
// truncated toward zero; origin 8.0 gives a band's start, 7.0 its end.
uint32_t EdgeOfBand(int32_t band, double origin) {
  return static_cast<uint32_t>(TruncateToInt64(std::pow(2.0, (band - origin) * 0.25) * 1000.0));
}

}  // namespace

CSignDataSFM::CSignDataSFM()
    : CFeatureObject<float>("SFM", 2),
      m_tempRes(0),
      m_rowStride(0),
      m_sfmLowBand(0),
      m_sfmHighBand(0) {}

CSignDataSFM::CSignDataSFM(const CSignDataSFM& other, bool copyMatrix)
    : CFeatureObject<float>(other, copyMatrix),
      m_tempRes(other.m_tempRes),
      m_rowStride(other.m_rowStride),
      m_sfmLowBand(other.m_sfmLowBand),
      m_sfmHighBand(other.m_sfmHighBand) {}

CSignDataSFM::CSignDataSFM(const CSignDataSFM& other, uint32_t skipMs, uint32_t durationMs)
    : CFeatureObject<float>(other, skipMs, durationMs),
      m_tempRes(other.m_tempRes),
      m_rowStride(other.m_rowStride),
      m_sfmLowBand(other.m_sfmLowBand),
      m_sfmHighBand(other.m_sfmHighBand) {}

CSignDataSFM::~CSignDataSFM() = default;

void CSignDataSFM::EncodeParameters() {
  const uint32_t lf = EdgeOfBand(m_sfmLowBand, 8.0);
  const uint32_t uf = EdgeOfBand(m_sfmHighBand, 7.0);
  if (m_tempRes != m_rowStride) throw FeatureObjException(kSfmOverlap);
  SetParameter("lf", lf);
  SetParameter("uf", uf);
  SetParameter("sr", m_tempRes);
  if (m_tempRes * 30.0 != m_msPerRow) throw FeatureObjException(kSfmInconsistentSetting);
  CFeatureObject<float>::EncodeParameters();
}

CFeatureObjectBase* CSignDataSFM::CreateExcerpt(uint32_t skipMs, uint32_t durationMs) const {
  if (skipMs == 0 && durationMs == 0) return new CSignDataSFM(*this, true);
  return new CSignDataSFM(*this, skipMs, durationMs);
}

float CSignDataSFM::SetDefaultMsPerRow() {
  m_msPerRow = static_cast<float>(m_tempRes * 30.0);
  return m_msPerRow;
}

void CSignDataSFM::DecodeParameters() {
  RequireFeatureName(*this, "SFM");
  const uint32_t lf = TakeUnsignedParameter(*this, "lf");
  const uint32_t uf = TakeUnsignedParameter(*this, "uf");
  const uint32_t sr = TakeUnsignedParameter(*this, "sr");
  m_tempRes = sr;
  m_rowStride = sr;
  m_sfmLowBand = BandOfEdge(lf, 8.5);
  m_sfmHighBand = BandOfEdge(uf, 7.5);
  if (m_sfmLowBand < kLowestBand || m_sfmLowBand > kHighestLowBand ||
      m_sfmHighBand > kHighestHighBand || m_sfmHighBand < m_sfmLowBand) {
    throw FeatureObjException(kSfmInvalidRange);
  }
  CFeatureObject<float>::DecodeParameters();
}

bool CSignDataSFM::HasSameSettings(const CFeatureObjectBase* other) const {
  const auto* sfm = dynamic_cast<const CSignDataSFM*>(other);
  return sfm != nullptr && sfm->m_msPerRow == m_msPerRow && sfm->m_tempRes == m_tempRes &&
         sfm->m_rowStride == m_rowStride && sfm->m_sfmLowBand == m_sfmLowBand &&
         sfm->m_sfmHighBand == m_sfmHighBand;
}
