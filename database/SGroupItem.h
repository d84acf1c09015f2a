// One stored signature in one feature group: its identifier and its group vector, ready to
// compare (means appended, normalised).
#ifndef ORVANE_DATABASE_SGROUPITEM_H_
#define ORVANE_DATABASE_SGROUPITEM_H_

#include <cstdint>
#include <utility>

#include "vexl/heap_matrix.h"

// Exchanges the storage and shape of two matrices without copying elements.
inline void swapStorage(HeapMatrix<float>& a, HeapMatrix<float>& b) noexcept {
  std::swap(a.m_data, b.m_data);
  std::swap(a.m_rows, b.m_rows);
  std::swap(a.m_cols, b.m_cols);
  std::swap(a.m_capacity, b.m_capacity);
}

struct SGroupItem {
  SGroupItem() = default;
  SGroupItem(uint32_t index, uint32_t idLow, uint32_t idHigh, uint32_t tag)
      : index(index), idLow(idLow), idHigh(idHigh), tag(tag) {}
  SGroupItem(const SGroupItem&) = default;
  SGroupItem& operator=(const SGroupItem&) = default;
  // Moves hand the vector's storage over, so that a growing item list never copies vectors.
  SGroupItem(SGroupItem&& other) noexcept { *this = std::move(other); }
  SGroupItem& operator=(SGroupItem&& other) noexcept {
    index = other.index;
    reserved = other.reserved;
    idLow = other.idLow;
    idHigh = other.idHigh;
    tag = other.tag;
    swapStorage(vector, other.vector);
    return *this;
  }

  uint32_t index = 0;     // its own position in the group's items
  uint32_t reserved = 0;  // never assigned or read
  uint32_t idLow = 0;
  uint32_t idHigh = 0;
  uint32_t tag = 0;  // the caller's word, stored and persisted only
  HeapMatrix<float> vector;  // one row
};

#endif  // ORVANE_DATABASE_SGROUPITEM_H_
