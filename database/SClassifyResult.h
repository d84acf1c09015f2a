// One entry of a classification's result list: the score of one stored signature.
#ifndef ORVANE_DATABASE_SCLASSIFYRESULT_H_
#define ORVANE_DATABASE_SCLASSIFYRESULT_H_

#include <cstdint>

struct SClassifyResult {
  uint32_t reserved0 = 0;
  float score = 0.0f;  // a distance: lower is closer, 0 is identical
  uint32_t reserved1 = 0;
  uint32_t reserved2 = 0;
  uint32_t idLow = 0;
  uint32_t idHigh = 0;
  uint32_t reserved3 = 0;
  uint32_t reserved4 = 0;
};

#endif  // ORVANE_DATABASE_SCLASSIFYRESULT_H_
