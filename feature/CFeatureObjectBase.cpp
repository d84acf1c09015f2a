#include "feature/CFeatureObjectBase.h"

CFeatureObjectBase::~CFeatureObjectBase() = default;
