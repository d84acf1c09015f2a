// Arbitrary bytes as a database stream: load them into a store built with the library's
// groups, then count and classify against it. A load never fails for a damaged stream, so
// whatever the bytes, nothing but the store's own classification texts may come out.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "database/CSignatureDatabase.h"
#include "database/SFeatureGroupDef.h"

namespace {

constexpr size_t kMaxInput = 1 << 16;

// Tiles of a query photo: a fixed ramp per feature.
const float* queryTiles(const std::string& name, uint32_t) {
  static const std::vector<float> edg(96, 0.25f);
  static const std::vector<float> hue = [] {
    std::vector<float> v(144);
    for (size_t i = 0; i < v.size(); ++i) v[i] = static_cast<float>(i % 16) / 16.0f;
    return v;
  }();
  static const std::vector<float> level(36, 0.5f);
  if (name == "EDG") return edg.data();
  if (name == "HUE") return hue.data();
  if (name == "SAT" || name == "VAL") return level.data();
  return nullptr;
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
      const std::vector<SClassifyResult>& ranked =
          db.classifyFeatures("V6", queryTiles, mode, nullptr);
      for (const SClassifyResult& r : ranked) sink = sink + r.idLow + r.idHigh + (r.score < 0.07f);
    } catch (const std::string&) {
      // An empty or refused store answers with one of its texts.
    }
  }
  (void)sink;
  return 0;
}
