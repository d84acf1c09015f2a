#include "feature/CFeatureObject.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

#include "feature/ByteReader.h"
#include "feature/FeatureObjException.h"
#include "feature/QuantBlock.h"
#include "vexl/Truncate.h"

namespace {

constexpr int16_t kStreamVersion = 2;
// Length byte and tag of each sub-block.
constexpr uint32_t kSubTagBytes = 6;
constexpr uint32_t kMatrixTagBytes = 1;
constexpr uint16_t kFeatureIdSpectral = 2;
constexpr uint16_t kFeatureIdEnvelope = 3;
constexpr float kDefaultMsPerRow = 30.0f;
constexpr char kMsPerRowKey[] = "msPerRow";

unsigned char* PutBytes(unsigned char* out, const void* bytes, size_t count) {
  if (count != 0) std::memcpy(out, bytes, count);
  return out + count;
}

unsigned char* PutCounted(unsigned char* out, const std::string& text) {
  *out++ = static_cast<unsigned char>(text.size());
  return PutBytes(out, text.data(), text.size());
}

std::string TakeText(ByteReader& in, uint32_t count) {
  return std::string(reinterpret_cast<const char*>(in.Take(count)), count);
}

// Finds name in map; copies the value out and removes the entry if asked.
template <typename V, typename Convert>
bool TakeParameter(ParameterMap<V>& map, const std::string& name, bool remove, Convert convert) {
  const auto it = map.Find(name);
  if (it == map.end()) return false;
  convert(it->second);
  if (remove) map.Erase(it);
  return true;
}

}  // namespace

template <typename T>
CFeatureObject<T>::CFeatureObject()
    : m_featureId(0),
      m_msPerRow(0.0f),
      m_quantFlag(false),
      m_defaultQuant(nullptr),
      m_streamQuant(nullptr) {}

template <typename T>
CFeatureObject<T>::CFeatureObject(const char* name, uint16_t featureId) : CFeatureObject() {
  m_name = name;
  m_featureId = featureId;
}

template <typename T>
CFeatureObject<T>::CFeatureObject(const CFeatureObject& other, bool copyMatrix)
    : CFeatureObject() {
  CopyAll(other, copyMatrix);
}

template <typename T>
CFeatureObject<T>::CFeatureObject(const CFeatureObject& other) : CFeatureObject(other, true) {}

template <typename T>
CFeatureObject<T>::CFeatureObject(const CFeatureObject& other, uint32_t skipMs,
                                  uint32_t durationMs)
    : CFeatureObject(other, false) {
  TakeRows(other.m_matrix, skipMs, durationMs);
}

template <typename T>
CFeatureObject<T>::~CFeatureObject() {
  delete m_streamQuant;
  delete m_defaultQuant;
}

template <typename T>
void CFeatureObject<T>::CopyAll(const CFeatureObject& other, bool copyMatrix) {
  m_featureId = other.m_featureId;
  m_name = other.m_name;
  m_msPerRow = other.m_msPerRow;
  m_stringParams = other.m_stringParams;
  m_uintParams = other.m_uintParams;
  m_quantBlock = other.m_quantBlock;
  if (copyMatrix) m_matrix.Assign(other.m_matrix);
  m_quantFlag = false;
  delete m_streamQuant;
  m_streamQuant = nullptr;
  delete m_defaultQuant;
  m_defaultQuant = nullptr;
}

// Rows by time, all unsigned integer arithmetic with truncating division: p is the row length
// in whole milliseconds and h half of it, so each bound is rounded to the nearest row. The
// excerpt has at least one row.
template <typename T>
void CFeatureObject<T>::TakeRows(const HeapMatrix<T>& source, uint32_t skipMs,
                                 uint32_t durationMs) {
  const uint32_t rows = source.m_rows;
  const uint32_t cols = source.m_cols;
  if (uint64_t{rows} * cols == 0) return;
  const auto p = static_cast<uint32_t>(TruncateToInt64(m_msPerRow));
  // Rows shorter than a millisecond cannot be addressed by whole milliseconds: refused
  // rather than divided by zero.
  if (p == 0) throw FeatureObjException(kExcerptSkip);
  const uint32_t h = p >> 1;
  const uint32_t first = (skipMs + h) / p;
  uint32_t last = rows;
  if (durationMs != 0) {
    last = (skipMs + h + durationMs) / p;
    if (last > rows) last = rows;
  }
  if (first >= rows) throw FeatureObjException(kExcerptSkip);
  if (first == last) ++last;
  if (last > rows) throw FeatureObjException(kExcerptDuration);
  m_matrix.Resize(last - first, cols);
  std::memcpy(m_matrix.m_data, source.m_data + uint64_t{first} * cols,
              uint64_t{last - first} * cols * sizeof(T));
}

template <typename T>
void CFeatureObject<T>::Reset() {
  m_featureId = 0;
  m_name.clear();
  m_msPerRow = 0.0f;
  m_quantFlag = false;
  m_stringParams.clear();
  m_uintParams.clear();
  m_quantBlock.clear();
  delete m_streamQuant;
  m_streamQuant = nullptr;
  delete m_defaultQuant;
  m_defaultQuant = nullptr;
  m_matrix.Clear();
}

template <typename T>
uint32_t CFeatureObject<T>::ReadFromStream(const unsigned char* buffer, uint32_t size) {
  Reset();
  ByteReader in(buffer, size);
  // Any version up to 2 is read, 0 and negative ones included.
  const auto version = static_cast<int16_t>(in.U16());
  if (version > kStreamVersion) throw FeatureObjException(kUnsupportedStreamVersion);
  m_featureId = in.U16();
  m_name = TakeText(in, in.U8());
  const std::string storedType = TakeText(in, in.U8());

  while (in.Remaining() > 0) {
    const uint8_t tagBytes = in.U8();
    if (tagBytes == 5) {
      const unsigned char* tag = in.Take(5);
      if (std::memcmp(tag, "Param", 5) == 0) {
        ReadParameterMaps(in, version);
      } else if (std::memcmp(tag, "Quant", 5) == 0) {
        // The block length counts from its own first byte; a later block replaces this one.
        in.Need(4);
        const uint32_t blockBytes = loadBigEndian32(in.Here());
        const unsigned char* block = in.Take(blockBytes);
        m_quantBlock.assign(block, block + blockBytes);
      } else {
        throw FeatureObjException(kUnsupportedSubTag);
      }
    } else if (tagBytes == 3) {
      in.Need(3);
      if (std::memcmp(in.Here(), "MAT", 3) != 0) throw FeatureObjException(kUnsupportedSubTag);
      in.Skip(ReadMatrixBlock(in.Here(), in.Remaining(), storedType));
    } else {
      throw FeatureObjException(kUnsupportedSubTag);
    }
  }
  DecodeParameters();
  return in.Position();
}

template <typename T>
void CFeatureObject<T>::ReadParameterMaps(ByteReader& in, int streamVersion) {
  const uint8_t count = in.U8();
  for (uint8_t i = 0; i < count; ++i) {
    uint32_t consumed = m_stringParams.ReadFromStream(in.Here(), in.Remaining(), streamVersion);
    if (consumed == 0) {
      consumed = m_uintParams.ReadFromStream(in.Here(), in.Remaining(), streamVersion);
    }
    if (consumed == 0) throw FeatureObjException(kUnsupportedParameterMap);
    in.Skip(consumed);
  }
}

template <typename T>
uint32_t CFeatureObject<T>::ReadMatrixBlock(const unsigned char* position, uint32_t remaining,
                                            const std::string& storedType) {
  if constexpr (std::is_same_v<T, float>) {
    if (storedType == TypeInfo<unsigned char>::TypeName()) {
      HeapMatrix<unsigned char> bytes;
      const uint32_t consumed = bytes.ReadFromBuffer(position, remaining);
      if (uint64_t{bytes.m_rows} * bytes.m_cols == 0) return consumed;
      m_matrix.Resize(bytes.m_rows, bytes.m_cols);
      if (m_streamQuant == nullptr && !m_quantBlock.empty()) CreateStreamQuantizer(m_quantBlock);
      CQuantModule<float>* module = m_streamQuant;
      if (module == nullptr) {
        if (CreateDefaultQuantizer(m_quantFlag) == 0) {
          throw FeatureObjException(kConversionNeedsQuantizer);
        }
        module = m_defaultQuant;
      }
      for (uint32_t r = 0; r < bytes.m_rows; ++r) {
        m_matrix.Row(r).Assign(module->DequantizeRow(bytes.Row(r)));
      }
      return consumed;
    }
  }
  if (storedType != GetTypeName()) throw FeatureObjException(kFeatureTypeMismatch);
  return m_matrix.ReadFromBuffer(position, remaining);
}

template <typename T>
void CFeatureObject<T>::ChooseQuantizer() {
  if (m_streamQuant != nullptr) return;
  if (!m_quantBlock.empty()) {
    CreateStreamQuantizer(m_quantBlock);
  } else {
    CreateDefaultQuantizer(m_quantFlag);
  }
}

// The default quantisers, 256 levels each: feature id 2 maps the first half of the columns
// linearly over 0.0 to 1.0 and the second half over 0.0 to 0.1 (half is columns >> 1, so the
// last of an odd count is covered by neither); id 3 maps all columns logarithmically over
// 10^-9 to 10^-1.
template <typename T>
uint32_t CFeatureObject<T>::CreateDefaultQuantizer(bool exactMin) {
  const uint32_t cols = m_matrix.m_cols;
  if (cols == 0 || m_streamQuant != nullptr || !m_quantBlock.empty()) return 0;
  delete m_defaultQuant;
  m_defaultQuant = nullptr;
  std::unique_ptr<CQuantModule<float>> module;
  if (m_featureId == kFeatureIdSpectral) {
    module = std::make_unique<CQuantModule<float>>(cols);
    module->AddQuantizer(new CQuant(0.0f, 1.0f, 256, exactMin), cols >> 1);
    module->AddQuantizer(new CQuant(0.0f, 0.1f, 256, exactMin), cols >> 1);
  } else if (m_featureId == kFeatureIdEnvelope) {
    module = std::make_unique<CQuantModule<float>>(cols);
    module->AddQuantizer(new CQuant_log(-9.0f, -1.0f, 256, exactMin), cols);
  } else {
    return 0;
  }
  m_defaultQuant = module.release();
  return m_defaultQuant->GetTotalColumns();
}

template <typename T>
uint32_t CFeatureObject<T>::CreateStreamQuantizer(const std::vector<unsigned char>& block) {
  const uint32_t cols = m_matrix.m_cols;
  if (cols == 0) return 0;
  delete m_streamQuant;
  m_streamQuant = nullptr;
  auto module = std::make_unique<CQuantModule<float>>(cols);
  const uint32_t parsed =
      ParseQuantBlock(block.data(), static_cast<uint32_t>(block.size()), module.get());
  m_streamQuant = module.release();
  return parsed;
}

template <typename T>
CQuantModule<float>* CFeatureObject<T>::ConversionModule() const {
  if constexpr (std::is_same_v<T, float>) {
    return m_streamQuant != nullptr ? m_streamQuant : m_defaultQuant;
  } else {
    return nullptr;
  }
}

template <typename T>
const std::string& CFeatureObject<T>::WrittenTypeName() const {
  return ConversionModule() != nullptr ? TypeInfo<unsigned char>::TypeName() : GetTypeName();
}

// Sum of the parts WriteToStream writes: the header, "Param" if a map has entries, "Quant"
// if stream quantisers exist, and the MAT sub-block. "Quant" is counted from the module's
// entries, 6 + 6 + 14 per quantiser + 8 per polynomial, not from the raw block that the
// writer copies. kept: a block with spare bytes behind its entries leaves too little room
// for the matrix, and the write fails with "stream buffer overflow".
template <typename T>
uint32_t CFeatureObject<T>::GetStreamSize() {
  ChooseQuantizer();
  uint64_t size = 5 + m_name.size() + 1 + WrittenTypeName().size();
  if (!m_stringParams.empty() || !m_uintParams.empty()) {
    size += kSubTagBytes + 1 + m_stringParams.GetStreamSize() + m_uintParams.GetStreamSize();
  }
  if (m_streamQuant != nullptr) size += kSubTagBytes + QuantBlockBytes(*m_streamQuant);
  size += WriteMatrixBlock(nullptr, 0);
  if (size > UINT32_MAX) throw FeatureObjException(kStreamBufferOverflow);
  return static_cast<uint32_t>(size);
}

template <typename T>
uint32_t CFeatureObject<T>::WriteToStream(unsigned char* buffer, uint32_t size) {
  if (size < GetStreamSize()) throw FeatureObjException(kStreamBufferOverflow);
  unsigned char* out = buffer;
  storeBigEndian16(out, static_cast<uint16_t>(kStreamVersion));
  storeBigEndian16(out + 2, m_featureId);
  out = PutCounted(out + 4, m_name);
  ChooseQuantizer();
  out = PutCounted(out, WrittenTypeName());
  if (!m_stringParams.empty() || !m_uintParams.empty()) {
    out = PutBytes(out, "\x05Param", kSubTagBytes);
    *out++ = static_cast<unsigned char>(!m_stringParams.empty() + !m_uintParams.empty());
    out += m_stringParams.WriteToStream(out);
    out += m_uintParams.WriteToStream(out);
  }
  if (m_streamQuant != nullptr) {
    // The raw block may be longer than counted: it must not run past the buffer.
    if (kSubTagBytes + m_quantBlock.size() > size - static_cast<size_t>(out - buffer)) {
      throw FeatureObjException(kStreamBufferOverflow);
    }
    out = PutBytes(out, "\x05Quant", kSubTagBytes);
    out = PutBytes(out, m_quantBlock.data(), m_quantBlock.size());
  }
  out += WriteMatrixBlock(out, size - static_cast<uint32_t>(out - buffer));
  return static_cast<uint32_t>(out - buffer);
}

// The byte 3, then the MAT stream, whose "MAT" is the sub-block's tag. A float object with a
// quantiser writes its rows quantised, unless the matrix has no elements: then the float
// matrix goes out under the type word "flt" while the object's stored type says "uchr" (kept:
// readers of existing streams see exactly this).
template <typename T>
uint32_t CFeatureObject<T>::WriteMatrixBlock(unsigned char* buffer, uint32_t size) {
  CQuantModule<float>* module = ConversionModule();
  const uint64_t elements = uint64_t{m_matrix.m_rows} * m_matrix.m_cols;
  const uint64_t needed =
      kMatHeaderBytes + elements * (module != nullptr ? 1 : TypeInfo<T>::kElementBytes);
  if (buffer == nullptr) return static_cast<uint32_t>(kMatrixTagBytes + needed);
  HeapMatrix<unsigned char> bytes;
  if constexpr (std::is_same_v<T, float>) {
    if (module != nullptr && elements != 0) {
      bytes.Resize(m_matrix.m_rows, m_matrix.m_cols);
      for (uint32_t r = 0; r < m_matrix.m_rows; ++r) {
        bytes.Row(r).Assign(module->QuantizeRow(m_matrix.Row(r)));
      }
    }
  }
  if (size < needed + kMatrixTagBytes) throw FeatureObjException(kStreamBufferOverflow);
  buffer[0] = 3;
  // Float objects write exactly the MAT stream; the others hand the rest of the buffer to the
  // matrix writer, which clears all of it.
  const auto room = static_cast<uint32_t>(std::is_same_v<T, float> ? needed : size - 1);
  const uint32_t written = bytes.m_rows * bytes.m_cols != 0
                               ? bytes.WriteToBuffer(buffer + 1, room, "bin")
                               : m_matrix.WriteToBuffer(buffer + 1, room, "bin");
  return written + kMatrixTagBytes;
}

template <typename T>
void CFeatureObject<T>::EncodeParameters() {
  if (m_msPerRow != 0.0f) SetParameter(kMsPerRowKey, m_msPerRow);
}

// rows * m_msPerRow in float, truncated toward zero.
template <typename T>
int64_t CFeatureObject<T>::GetDuration() const {
  return TruncateToInt64(static_cast<float>(m_matrix.m_rows) * m_msPerRow);
}

template <typename T>
int CFeatureObject<T>::IsEmpty() const {
  return uint64_t{m_matrix.m_rows} * m_matrix.m_cols == 0 ? 1 : 0;
}

template <typename T>
SMatrixInfo& CFeatureObject<T>::GetMatrixInfo(SMatrixInfo& info) {
  info.m_typeName = GetTypeName().c_str();
  info.m_rows = m_matrix.m_rows;
  info.m_cols = m_matrix.m_cols;
  info.m_data = m_matrix.m_data;
  return info;
}

template <typename T>
const std::string& CFeatureObject<T>::GetName() const {
  return m_name;
}

template <typename T>
const std::string& CFeatureObject<T>::GetTypeName() const {
  return TypeInfo<T>::TypeName();
}

template <typename T>
CFeatureObjectBase* CFeatureObject<T>::CreateExcerpt(uint32_t skipMs, uint32_t durationMs) const {
  if (skipMs == 0 && durationMs == 0) return new CFeatureObject<T>(*this, true);
  return new CFeatureObject<T>(*this, skipMs, durationMs);
}

// n = ms / m_msPerRow in float, truncated; the result is n * m_msPerRow (float) + 0.5
// (double), truncated.
template <typename T>
uint32_t CFeatureObject<T>::RemoveFront(uint32_t ms) {
  if (m_msPerRow == 0.0f) return 0;
  const auto n = static_cast<uint32_t>(TruncateToInt64(static_cast<float>(ms) / m_msPerRow));
  if (n == 0) return 0;
  m_matrix.RemoveFrontRows(n);
  return static_cast<uint32_t>(TruncateToInt64(static_cast<float>(n) * m_msPerRow + 0.5));
}

template <typename T>
uint32_t CFeatureObject<T>::Append(const CFeatureObjectBase* other) {
  if (!HasSameSettings(other)) throw FeatureObjException(kDifferentSettings);
  m_matrix.AppendMatrix(dynamic_cast<const CFeatureObject<T>*>(other)->m_matrix);
  return m_matrix.m_rows;
}

template <typename T>
uint16_t CFeatureObject<T>::GetFeatureId() const {
  return m_featureId;
}

template <typename T>
void CFeatureObject<T>::PrintParameters(std::ostream& out) {
  EncodeParameters();
  m_stringParams.Print(out);
  m_uintParams.Print(out);
}

template <typename T>
float CFeatureObject<T>::GetMsPerRow() const {
  return m_msPerRow;
}

template <typename T>
void CFeatureObject<T>::SetParameter(const char* name, uint32_t value) {
  m_uintParams.Set(name, value);
}

template <typename T>
void CFeatureObject<T>::SetParameter(const char* name, float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", static_cast<double>(value));
  m_stringParams.Set(name, text);
}

template <typename T>
void CFeatureObject<T>::SetParameter(const char* name, const std::string& value) {
  m_stringParams.Set(name, value);
}

// A text value converts as atoi does (strtol, cut to int), without atoi's undefined
// behaviour on overflow.
template <typename T>
bool CFeatureObject<T>::GetParameter(uint32_t* value, const std::string& name, bool remove) {
  if (TakeParameter(m_uintParams, name, remove, [value](unsigned int v) { *value = v; })) {
    return true;
  }
  return TakeParameter(m_stringParams, name, remove, [value](const std::string& text) {
    *value = static_cast<uint32_t>(static_cast<int>(std::strtol(text.c_str(), nullptr, 10)));
  });
}

template <typename T>
bool CFeatureObject<T>::GetParameter(float* value, const std::string& name, bool remove) {
  return TakeParameter(m_stringParams, name, remove, [value](const std::string& text) {
    *value = static_cast<float>(std::strtod(text.c_str(), nullptr));
  });
}

template <typename T>
bool CFeatureObject<T>::GetParameter(std::string* value, const std::string& name, bool remove) {
  return TakeParameter(m_stringParams, name, remove,
                       [value](const std::string& text) { *value = text; });
}

template <typename T>
float CFeatureObject<T>::SetDefaultMsPerRow() {
  if (m_msPerRow == 0.0f) m_msPerRow = kDefaultMsPerRow;
  return m_msPerRow;
}

template <typename T>
void CFeatureObject<T>::DecodeParameters() {
  float msPerRow = 0.0f;
  if (GetParameter(&msPerRow, kMsPerRowKey, true)) {
    m_msPerRow = msPerRow;
  } else {
    SetDefaultMsPerRow();
  }
}

template <typename T>
bool CFeatureObject<T>::HasSameSettings(const CFeatureObjectBase* other) const {
  const auto* same = dynamic_cast<const CFeatureObject<T>*>(other);
  return same != nullptr && same->m_msPerRow == m_msPerRow;
}

template <typename T>
uint32_t CFeatureObject<T>::AppendVector(const BaseVector<T>& vector) {
  m_matrix.AppendRow(vector);
  return m_matrix.m_rows;
}

template <typename T>
uint32_t CFeatureObject<T>::AppendMatrixRows(const BaseMatrix<T>& matrix) {
  m_matrix.AppendMatrix(matrix);
  return m_matrix.m_rows;
}

template <typename T>
void CFeatureObject<T>::ClearMatrix() {
  m_matrix.Clear();
}

template class CFeatureObject<float>;
template class CFeatureObject<unsigned char>;
template class CFeatureObject<unsigned int>;
