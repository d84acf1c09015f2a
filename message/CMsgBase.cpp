#include "message/CMsgBase.h"

CMsgBase::~CMsgBase() = default;
