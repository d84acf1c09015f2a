// Arbitrary bytes as a database stream: load them into a store built with the library's
// groups, then count and classify against it. A load never fails for a damaged stream, so
// whatever the bytes, nothing but the store's own classification texts may come out.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "database/CSignatureDatabase.h"
#include "database/SFeatureGroupDef.h"
#include "feature/CFeatureObject.h"
#include "signature/CAudioSignMulti.h"
#include "signature/CSignDataMulti.h"
#include "signature/SMetaFrame.h"

namespace {

constexpr size_t kMaxInput = 1 << 16;

// A query photo as the extractor would give it: four one-row float features (a ramp of
// tile values each) and the version frame.
const CAudioSignMulti& query() {
  static const CAudioSignMulti signature = [] {
    const std::pair<const char*, uint32_t> features[] = {
        {"EDG", 96}, {"HUE", 144}, {"SAT", 36}, {"VAL", 36}};
    auto* data = new CSignDataMulti();
    for (const auto& [name, count] : features) {
      std::vector<float> tiles(count);
      for (uint32_t i = 0; i < count; ++i) tiles[i] = static_cast<float>(i % 7) / 7.0f;
      auto* feature = new CFeatureObject<float>(name, 2027);
      feature->AppendVector(BaseVector<float>(tiles.data(), count));
      data->AddFeatureObject(feature);
    }
    data->addFrame(SMetaFrame(3, 2, "VER", "V6"));
    CAudioSignMulti made;
    made.adopt(data);
    return made;
  }();
  return signature;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxInput) return 0;
  std::vector<SFeatureGroupDef> defs;
  buildFeatureGroupDefs(defs);
  CSignatureDatabase db;
  db.init(defs, 0);
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  const uint32_t read = db.loadFromStream(in);
  volatile uint32_t sink = read + db.itemCount();
  for (int mode : {0, 1}) {
    try {
      const std::vector<SClassifyResult>& ranked = db.classifyFloat(query(), mode, nullptr);
      for (const SClassifyResult& r : ranked) sink = sink + r.idLow + r.idHigh + (r.score < 0.07f);
    } catch (const std::string&) {
      // An empty or refused store answers with one of its texts.
    }
  }
  (void)sink;
  return 0;
}
