#include "feature/CSignDataASE.h"

#include "feature/FeatureSettings.h"

CSignDataASE::CSignDataASE()
    : CFeatureObject<float>("ASE", 3), m_lowerFreq(0), m_upperFreq(0), m_resolution(0) {}

CSignDataASE::CSignDataASE(const CSignDataASE& other, bool copyMatrix)
    : CFeatureObject<float>(other, copyMatrix),
      m_lowerFreq(other.m_lowerFreq),
      m_upperFreq(other.m_upperFreq),
      m_resolution(other.m_resolution) {}

CSignDataASE::CSignDataASE(const CSignDataASE& other, uint32_t skipMs, uint32_t durationMs)
    : CFeatureObject<float>(other, skipMs, durationMs),
      m_lowerFreq(other.m_lowerFreq),
      m_upperFreq(other.m_upperFreq),
      m_resolution(other.m_resolution) {}

CSignDataASE::~CSignDataASE() = default;

void CSignDataASE::EncodeParameters() {
  SetParameter("lf", m_lowerFreq);
  SetParameter("uf", m_upperFreq);
  SetParameter("re", m_resolution);
  CFeatureObject<float>::EncodeParameters();
}

CFeatureObjectBase* CSignDataASE::CreateExcerpt(uint32_t skipMs, uint32_t durationMs) const {
  if (skipMs == 0 && durationMs == 0) return new CSignDataASE(*this, true);
  return new CSignDataASE(*this, skipMs, durationMs);
}

void CSignDataASE::DecodeParameters() {
  RequireFeatureName(*this, "ASE");
  m_lowerFreq = TakeUnsignedParameter(*this, "lf");
  m_upperFreq = TakeUnsignedParameter(*this, "uf");
  m_resolution = TakeUnsignedParameter(*this, "re");
  CFeatureObject<float>::DecodeParameters();
}

bool CSignDataASE::HasSameSettings(const CFeatureObjectBase* other) const {
  const auto* ase = dynamic_cast<const CSignDataASE*>(other);
  return ase != nullptr && ase->m_msPerRow == m_msPerRow && ase->m_lowerFreq == m_lowerFreq &&
         ase->m_upperFreq == m_upperFreq && ase->m_resolution == m_resolution;
}
