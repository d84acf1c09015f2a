#include "feature/FeatureObjException.h"

FeatureObjException::FeatureObjException(const std::string& detail)
    : m_message("CFeatureObject: " + detail) {}

FeatureObjException::~FeatureObjException() = default;

const char* FeatureObjException::what() const noexcept { return m_message.c_str(); }
