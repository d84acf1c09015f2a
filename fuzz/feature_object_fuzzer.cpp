// Fuzzes the feature object stream reader of all three element types, Quant block and
// parameter maps included. An object that reads is sized and written again; every failure
// must be one the library throws on purpose.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "feature/CFeatureObject.h"
#include "feature/FeatureObjException.h"

namespace {

template <typename T>
void ReadAndTouch(const uint8_t* data, size_t size) {
  // Exact-size copy: any read behind the input is caught by AddressSanitizer.
  const std::vector<unsigned char> input(data, data + size);
  CFeatureObject<T> object;
  try {
    object.ReadFromStream(input.data(), static_cast<uint32_t>(input.size()));
    volatile double sum = object.GetMsPerRow() + object.GetDuration() + object.IsEmpty();
    const uint64_t count = uint64_t{object.m_matrix.m_rows} * object.m_matrix.m_cols;
    for (uint64_t i = 0; i < count; ++i) sum = sum + object.m_matrix.m_data[i];
    object.EncodeParameters();
    std::vector<unsigned char> out(object.GetStreamSize());
    object.WriteToStream(out.data(), static_cast<uint32_t>(out.size()));
  } catch (const FeatureObjException&) {
  } catch (const VEXLException&) {
  } catch (const std::string&) {  // polynomial quantiser constructor
  } catch (int) {                 // quantiser constructors and index checks
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Each 22-byte polynomial entry of a Quant block may hold a table of up to 65536 floats;
  // the bound keeps one input's memory well under the fuzzer's limit.
  if (size > 16384) return 0;
  ReadAndTouch<float>(data, size);
  ReadAndTouch<unsigned char>(data, size);
  ReadAndTouch<unsigned int>(data, size);
  return 0;
}
