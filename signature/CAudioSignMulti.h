// CAudioSignMulti: the owner of one signature, or of none. Copies are deep. It writes a
// signature as an unsigned stream and reads one back, failing with AudioSignException on an
// unusable input stream and with the stream reader's own failures otherwise.
#ifndef ORVANE_SIGNATURE_CAUDIOSIGNMULTI_H_
#define ORVANE_SIGNATURE_CAUDIOSIGNMULTI_H_

#include <cstdint>
#include <istream>
#include <ostream>

#include "signature/CSignDataMulti.h"
#include "signature/CSignatureHook.h"

// The answer of CAudioSignMulti::compare: four 32-bit words.
struct SCompareResult {
  float score;
  uint32_t reserved[3];
};

class CAudioSignMulti {
 public:
  CAudioSignMulti() = default;
  CAudioSignMulti(const CAudioSignMulti& other);
  CAudioSignMulti& operator=(const CAudioSignMulti& other);
  virtual ~CAudioSignMulti();

  // Fixed answer: 255.0 and three zero words. Matching belongs to the database; this only checks
  // that both sides hold an active float feature.
  virtual SCompareResult compare(const CAudioSignMulti& other) const;

  // Takes ownership of p (nothing happens when p is the present data).
  void adopt(CSignDataMulti* p);
  int hasData() const { return signData != nullptr; }
  void clearData();
  CSignDataMulti* getData() const { return signData; }

  // Writes the unsigned stream: 0, or -1 without data.
  int write(std::ostream& out) const;
  // Replaces the data by the signature read from in. On a failure the old data is gone and the
  // object is empty.
  std::istream& read(std::istream& in, CSignatureHook* hook);

 private:
  CSignDataMulti* signData = nullptr;
};

#endif  // ORVANE_SIGNATURE_CAUDIOSIGNMULTI_H_
