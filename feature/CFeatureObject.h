// CFeatureObject<T>: a feature object with a HeapMatrix<T> of one row per time step, for
// T = float, unsigned char and unsigned int. It reads and writes the feature object stream
// (see doc/formats.md); a float object whose feature id has default quantisers, or whose
// stream carried a Quant block, is stored with one byte per element. Reading never looks
// outside the given bytes: a stream whose lengths run past its end fails with "format error
// in input stream". Quantisers are never copied or shared; they are rebuilt when needed.
#ifndef ORVANE_FEATURE_CFEATUREOBJECT_H_
#define ORVANE_FEATURE_CFEATUREOBJECT_H_

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "feature/CFeatureObjectBase.h"
#include "feature/CQuantModule.h"
#include "feature/ParameterMap.h"
#include "vexl/heap_matrix.h"

class ByteReader;

template <typename T>
class CFeatureObject : public CFeatureObjectBase {
 public:
  CFeatureObject();
  CFeatureObject(const char* name, uint16_t featureId);
  // Copies id, name, milliseconds per row, both maps and the Quant block, and the matrix if
  // copyMatrix; the copy has no quantisers.
  CFeatureObject(const CFeatureObject& other, bool copyMatrix);
  CFeatureObject(const CFeatureObject& other);
  // The excerpt: a copy without matrix that takes the rows of [skipMs, skipMs + durationMs),
  // all rows behind skipMs if durationMs is 0, each bound rounded to the nearest row.
  CFeatureObject(const CFeatureObject& other, uint32_t skipMs, uint32_t durationMs);
  CFeatureObject& operator=(const CFeatureObject&) = delete;
  ~CFeatureObject() override;

  uint32_t ReadFromStream(const unsigned char* buffer, uint32_t size) override;
  uint32_t WriteToStream(unsigned char* buffer, uint32_t size) override;
  uint32_t GetStreamSize() override;
  void EncodeParameters() override;
  int64_t GetDuration() const override;
  int IsEmpty() const override;
  SMatrixInfo& GetMatrixInfo(SMatrixInfo& info) override;
  const std::string& GetName() const override;
  const std::string& GetTypeName() const override;
  CFeatureObjectBase* CreateExcerpt(uint32_t skipMs, uint32_t durationMs) const override;
  uint32_t RemoveFront(uint32_t ms) override;
  uint32_t Append(const CFeatureObjectBase* other) override;
  uint16_t GetFeatureId() const override;
  void PrintParameters(std::ostream& out) override;
  float GetMsPerRow() const override;
  void SetParameter(const char* name, uint32_t value) override;
  // Stored as text formatted with "%g".
  void SetParameter(const char* name, float value) override;
  void SetParameter(const char* name, const std::string& value) override;
  // Looks in the unsigned map, then in the text map (converted as atoi does).
  bool GetParameter(uint32_t* value, const std::string& name, bool remove) override;
  // Look in the text map only; the float is converted as atof does.
  bool GetParameter(float* value, const std::string& name, bool remove) override;
  bool GetParameter(std::string* value, const std::string& name, bool remove) override;

  // 30 ms per row if none is set; returns the value in force.
  virtual float SetDefaultMsPerRow();
  // Takes the settings out of the parameter maps after a read.
  virtual void DecodeParameters();
  // Whether other is a CFeatureObject<T> with the same milliseconds per row.
  virtual bool HasSameSettings(const CFeatureObjectBase* other) const;

  // Matrix rules and failures are those of HeapMatrix; both return the new row count.
  uint32_t AppendVector(const BaseVector<T>& vector);
  uint32_t AppendMatrixRows(const BaseMatrix<T>& matrix);
  void ClearMatrix();

  uint16_t m_featureId;
  std::string m_name;
  float m_msPerRow;
  ParameterMap<std::string> m_stringParams;
  ParameterMap<unsigned int> m_uintParams;
  bool m_quantFlag;
  std::vector<unsigned char> m_quantBlock;
  HeapMatrix<T> m_matrix;
  CQuantModule<float>* m_defaultQuant;
  CQuantModule<float>* m_streamQuant;

 protected:
  void CopyAll(const CFeatureObject& other, bool copyMatrix);
  // Reads the MAT sub-block at position (its tag is the stream's "MAT"), converting a stored
  // "uchr" matrix of a float object through the quantisers; returns the bytes consumed.
  uint32_t ReadMatrixBlock(const unsigned char* position, uint32_t remaining,
                           const std::string& storedType);
  // Writes the MAT sub-block, tag length byte included; a null buffer asks for its size.
  uint32_t WriteMatrixBlock(unsigned char* buffer, uint32_t size);
  // Builds m_defaultQuant from the feature id; returns the columns it covers, 0 if none.
  uint32_t CreateDefaultQuantizer(bool exactMin);
  // Builds m_streamQuant from a Quant block; returns the bytes parsed.
  uint32_t CreateStreamQuantizer(const std::vector<unsigned char>& block);

 private:
  void Reset();
  void ReadParameterMaps(ByteReader& in, int streamVersion);
  void ChooseQuantizer();
  // The module that converts the stored matrix: float objects only.
  CQuantModule<float>* ConversionModule() const;
  const std::string& WrittenTypeName() const;
  void TakeRows(const HeapMatrix<T>& source, uint32_t skipMs, uint32_t durationMs);
};

extern template class CFeatureObject<float>;
extern template class CFeatureObject<unsigned char>;
extern template class CFeatureObject<unsigned int>;

#endif  // ORVANE_FEATURE_CFEATUREOBJECT_H_
