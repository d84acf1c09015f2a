#include "orvane.h"

FID_Exception::FID_Exception(const std::string& message) : message_(message) {}

FID_Exception::~FID_Exception() = default;

const char* FID_Exception::what() const noexcept { return message_.c_str(); }
