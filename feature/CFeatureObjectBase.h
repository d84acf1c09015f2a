// CFeatureObjectBase: the interface through which the library sees every feature object, a
// named time series of feature vectors (one matrix row per time step) with two parameter
// maps and a stream form. CFeatureObject<T> implements it for float, unsigned char and
// unsigned int elements.
#ifndef ORVANE_FEATURE_CFEATUREOBJECTBASE_H_
#define ORVANE_FEATURE_CFEATUREOBJECTBASE_H_

#include <cstdint>
#include <ostream>
#include <string>

// The matrix of a feature object as GetMatrixInfo describes it; the pointers stay owned by
// the object.
struct SMatrixInfo {
  const char* m_typeName;
  uint32_t m_rows;
  uint32_t m_cols;
  void* m_data;
};

class CFeatureObjectBase {
 public:
  virtual ~CFeatureObjectBase();

  // Replaces the whole object from a feature object stream; returns the bytes consumed.
  virtual uint32_t ReadFromStream(const unsigned char* buffer, uint32_t size) = 0;
  // Writes the feature object stream; returns the bytes written.
  virtual uint32_t WriteToStream(unsigned char* buffer, uint32_t size) = 0;
  // The exact byte count WriteToStream needs. Builds quantisers as a side effect.
  virtual uint32_t GetStreamSize() = 0;
  // Puts what the object knows into its parameter maps before a write.
  virtual void EncodeParameters() = 0;
  // Rows times milliseconds per row, truncated toward zero.
  virtual int64_t GetDuration() const = 0;
  // 1 if the matrix has no elements, else 0.
  virtual int IsEmpty() const = 0;
  virtual SMatrixInfo& GetMatrixInfo(SMatrixInfo& info) = 0;
  virtual const std::string& GetName() const = 0;
  // The element type word: "flt", "uchr" or "uint".
  virtual const std::string& GetTypeName() const = 0;
  // A new object owned by the caller: a full copy if both are 0, else the rows of the span.
  virtual CFeatureObjectBase* CreateExcerpt(uint32_t skipMs, uint32_t durationMs) const = 0;
  // Drops whole rows from the front; returns the milliseconds removed.
  virtual uint32_t RemoveFront(uint32_t ms) = 0;
  // Appends all rows of other; returns the new row count.
  virtual uint32_t Append(const CFeatureObjectBase* other) = 0;
  virtual uint16_t GetFeatureId() const = 0;
  virtual void PrintParameters(std::ostream& out) = 0;
  virtual float GetMsPerRow() const = 0;
  virtual void SetParameter(const char* name, uint32_t value) = 0;
  virtual void SetParameter(const char* name, float value) = 0;
  virtual void SetParameter(const char* name, const std::string& value) = 0;
  virtual bool GetParameter(uint32_t* value, const std::string& name, bool remove) = 0;
  virtual bool GetParameter(float* value, const std::string& name, bool remove) = 0;
  virtual bool GetParameter(std::string* value, const std::string& name, bool remove) = 0;
};

#endif  // ORVANE_FEATURE_CFEATUREOBJECTBASE_H_
