#include "feature/QuantBlock.h"

#include "feature/ByteReader.h"
#include "feature/FeatureObjException.h"

namespace {

// The entry type of a polynomial quantiser, the one entry with two more floats.
constexpr int kPolynomialType = 4;

}  // namespace

uint32_t QuantBlockBytes(const CQuantModule<float>& module) {
  uint32_t bytes = kQuantHeadBytes;
  for (uint32_t i = 0; i < module.GetQuantizerCount(); ++i) {
    bytes += kQuantEntryBytes;
    if (module.GetQuantizerType(i) == kPolynomialType) bytes += kPolynomialExtraBytes;
  }
  return bytes;
}

uint32_t ParseQuantBlock(const unsigned char* block, uint32_t size, CQuantModule<float>* module) {
  ByteReader in(block, size);
  in.U32();  // block length, already used by the sub-block reader
  const uint16_t count = in.U16();
  for (uint16_t i = 0; i < count; ++i) {
    const auto type = static_cast<int8_t>(in.U8());
    const float min = in.F32();
    const float max = in.F32();
    const uint16_t columns = in.U16();
    const uint16_t levels = in.U16();
    const bool exactMin = in.U8() != 0;
    CQuant* quantizer = nullptr;
    switch (type) {
      case 1:
        quantizer = new CQuant(min, max, levels, exactMin);
        break;
      case 2:
        quantizer = new CQuant_log(min, max, levels, exactMin);
        break;
      case 3:
        quantizer = new CQuant_sin(min, max, levels, exactMin);
        break;
      case kPolynomialType: {
        const float risingAtZero = in.F32();
        const float risingAtOne = in.F32();
        quantizer = new CQuant_polynomial(min, max, levels, exactMin, risingAtZero, risingAtOne);
        break;
      }
      default:
        throw FeatureObjException(kUnknownQuantizer);
    }
    module->AddQuantizer(quantizer, columns);
  }
  return in.Position();
}
