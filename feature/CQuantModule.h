// CQuantModule<float>: the quantisers of one matrix row, each covering a run of adjacent
// columns, in column order. It owns its quantisers and keeps one output row per direction,
// so that a row costs no allocation once the buffers have their size. Columns no quantiser
// covers keep what the output row held before.
#ifndef ORVANE_FEATURE_CQUANTMODULE_H_
#define ORVANE_FEATURE_CQUANTMODULE_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "feature/CQuant.h"
#include "feature/CQuant_log.h"
#include "feature/CQuant_polynomial.h"
#include "feature/CQuant_sin.h"
#include "vexl/base_vector.h"

template <typename T>
class CQuantModule {
 public:
  explicit CQuantModule(uint32_t columns) : m_columns(columns) {}
  CQuantModule(const CQuantModule&) = delete;
  CQuantModule& operator=(const CQuantModule&) = delete;
  virtual ~CQuantModule() {
    for (CQuant* quantizer : m_quantizers) delete quantizer;
  }

  // Takes ownership of quantizer, which covers the next columnCount columns; returns the
  // number of quantisers.
  uint32_t AddQuantizer(CQuant* quantizer, uint32_t columnCount) {
    std::unique_ptr<CQuant> owned(quantizer);
    m_quantizers.reserve(m_quantizers.size() + 1);
    m_columnCounts.reserve(m_columnCounts.size() + 1);
    m_quantizers.push_back(owned.release());
    m_columnCounts.push_back(columnCount);
    return GetQuantizerCount();
  }

  uint32_t GetQuantizerCount() const { return static_cast<uint32_t>(m_quantizers.size()); }

  uint32_t GetTotalColumns() const {
    uint32_t total = 0;
    for (uint32_t count : m_columnCounts) total += count;
    return total;
  }

  // 2 logarithmic, 3 sine-squared, 4 polynomial, 1 linear.
  int GetQuantizerType(uint32_t index) const {
    const CQuant* quantizer = m_quantizers[index];
    if (dynamic_cast<const CQuant_log*>(quantizer) != nullptr) return 2;
    if (dynamic_cast<const CQuant_sin*>(quantizer) != nullptr) return 3;
    if (dynamic_cast<const CQuant_polynomial*>(quantizer) != nullptr) return 4;
    return 1;
  }

  // Quantises row into m_columns bytes, each quantiser over its columns in turn.
  const HeapVector<unsigned char>& QuantizeRow(const BaseVector<T>& row) {
    m_bytes.Resize(m_columns);
    ForEachRun(row.m_size, [&](CQuant* q, uint32_t offset, uint32_t count) {
      q->Quantize(m_bytes.m_data + offset, row.m_data + offset, count);
    });
    return m_bytes;
  }

  // Dequantises row into m_columns values. Throws the integer -3 for an index that a
  // quantiser does not have.
  const HeapVector<T>& DequantizeRow(const BaseVector<unsigned char>& row) {
    m_floats.Resize(m_columns);
    ForEachRun(row.m_size, [&](CQuant* q, uint32_t offset, uint32_t count) {
      q->Dequantize(m_floats.m_data + offset, row.m_data + offset, count);
    });
    return m_floats;
  }

  uint32_t m_columns;
  std::vector<CQuant*> m_quantizers;
  std::vector<uint32_t> m_columnCounts;
  HeapVector<unsigned char> m_bytes;
  HeapVector<T> m_floats;

 private:
  // Calls run(quantizer, offset, count) for each quantiser's columns. Runs are cut at the end
  // of the shorter of the row and the output: column counts come from stream bytes and are
  // never compared with the matrix, so they must not carry a quantiser past either buffer.
  template <typename Run>
  void ForEachRun(uint32_t rowSize, Run run) {
    const uint32_t limit = rowSize < m_columns ? rowSize : m_columns;
    uint32_t offset = 0;
    for (size_t i = 0; i < m_quantizers.size() && offset < limit; ++i) {
      const uint32_t left = limit - offset;
      const uint32_t count = m_columnCounts[i] < left ? m_columnCounts[i] : left;
      run(m_quantizers[i], offset, count);
      offset += count;
    }
  }
};

#endif  // ORVANE_FEATURE_CQUANTMODULE_H_
