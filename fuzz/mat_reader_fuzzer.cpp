// Fuzzes the MAT stream reader of all three element types. A binary matrix that reads must
// write back to the same bytes apart from the unchecked fourth magic byte and type word.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vexl/heap_matrix.h"

namespace {

template <typename T>
void ReadAndTouch(const uint8_t* data, size_t size) {
  // Exact-size copy: any read behind the input is caught by AddressSanitizer.
  std::vector<unsigned char> input(data, data + size);
  HeapMatrix<T> m;
  uint32_t consumed = 0;
  try {
    consumed = m.ReadFromBuffer(input.data(), static_cast<uint32_t>(input.size()));
  } catch (const VEXLException&) {
    return;
  }
  if (consumed > size) std::abort();
  volatile double sum = 0;
  for (uint64_t i = 0; i < uint64_t{m.m_rows} * m.m_cols; ++i) sum = sum + m.m_data[i];
  std::vector<unsigned char> out(m.StreamBytes());
  m.WriteToBuffer(out.data(), static_cast<uint32_t>(out.size()), "bin");
  const bool binary = std::memcmp(input.data() + 8, "bin\n", 4) == 0;
  if (binary && (out.size() != size || std::memcmp(out.data() + 8, input.data() + 8,
                                                   size - 8) != 0)) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 65536) return 0;
  ReadAndTouch<float>(data, size);
  ReadAndTouch<unsigned char>(data, size);
  ReadAndTouch<unsigned int>(data, size);
  return 0;
}
