// The weight of one weight key: the value a host set and the weight derived from it.
#ifndef ORVANE_DATABASE_SGROUPWEIGHT_H_
#define ORVANE_DATABASE_SGROUPWEIGHT_H_

struct SGroupWeight {
  float percent = 0.0f;  // as set, not clamped
  float weight = 0.0f;   // clamped percent / 100, a fifth of that for key 1
};

#endif  // ORVANE_DATABASE_SGROUPWEIGHT_H_
