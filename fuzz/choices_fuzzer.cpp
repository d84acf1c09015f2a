// Arbitrary bytes as the choices file that the review page exports: read them against a small
// library and plan the moves. The only failure that may come out is the tool's own refusal.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/orvane/CToolError.h"
#include "tools/orvane/ReviewChoices.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1 << 16)) return 0;
  static const std::vector<SStoredPhoto> photos = {
      {1, "/photos/a.jpg", {}}, {2, "/photos/b.jpg", {}}, {3, "/photos/ref/c.jpg", {}}};
  static const std::vector<std::string> indexed = {"/photos"};
  SPlanOptions options;
  options.references = {"/photos/ref"};
  options.moveTo = "/moved";
  std::vector<SChoiceRefusal> refused;
  try {
    const std::vector<SPhotoMove> moves =
        choiceMoves("choices.json", std::string(reinterpret_cast<const char*>(data), size),
                    photos, indexed, options, &refused);
    for (const SPhotoMove& move : moves) {
      if (move.from.empty() || move.to.empty()) __builtin_trap();
    }
  } catch (const CToolError&) {
  }
  return 0;
}
