// Arbitrary bytes as a database stream, through the exported database: load them, then ask
// for the size and classify a photo against whatever was loaded. A damaged stream is not
// reported by load, so the only failures that may come out are the database's own texts.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "orvane.h"

namespace {

constexpr size_t kMaxInput = 1 << 16;

// The signature of a small drawn photo, extracted once.
const CFIDContainer& query() {
  static const CFIDContainer signature = [] {
    constexpr int kWidth = 48;
    constexpr int kHeight = 40;
    std::vector<unsigned char> bgr(kWidth * kHeight * 3);
    for (size_t i = 0; i < bgr.size(); ++i) bgr[i] = static_cast<unsigned char>(i * 7 % 251);
    CFIDExtractor extractor(1);
    return CFIDContainer(extractor.extract(bgr.data(), kWidth, kHeight, kWidth * 3, 0, 0));
  }();
  return signature;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxInput) return 0;
  const CFIDContainer& photo = query();
  CFIDDatabase db(1, 0);
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  db.load(in);
  volatile unsigned sink = db.size();
  for (int mode : {0, 1}) {
    try {
      for (const CFIDMatch& match : db.classify(photo, 0, mode)) {
        sink = sink + static_cast<unsigned>(match.id) + (match.score <= 0.07f);
      }
    } catch (const FID_Exception&) {
      // An empty or refused store answers with one of its texts.
    }
  }
  (void)sink;
  return 0;
}
