// BaseVector<T>: a view of size elements that owns nothing; HeapVector<T>: the same with its
// own storage. A vector is one contiguous block, so a row of a matrix is a vector without a
// copy. Instantiated for float and unsigned char.
#ifndef ORVANE_VEXL_BASE_VECTOR_H_
#define ORVANE_VEXL_BASE_VECTOR_H_

#include <cstdint>
#include <cstring>

#include "vexl/VEXLFailures.h"

template <typename T>
class BaseVector {
 public:
  BaseVector() : m_data(nullptr), m_size(0) {}
  BaseVector(T* data, uint32_t size) : m_data(data), m_size(size) {}
  BaseVector(const BaseVector&) = default;
  BaseVector& operator=(const BaseVector&) = default;
  virtual ~BaseVector() = default;

  // Copies the elements of source into this vector's elements; the two may overlap.
  // Throws "unequal vector size" if the sizes differ.
  void Assign(const BaseVector<T>& source) {
    if (&source == this) return;
    if (source.m_size != m_size) ThrowVEXL(kUnequalVectorSize);
    if (m_size != 0) std::memmove(m_data, source.m_data, m_size * sizeof(T));
  }

  T* m_data;
  uint32_t m_size;
};

template <typename T>
class HeapVector : public BaseVector<T> {
 public:
  HeapVector() = default;
  explicit HeapVector(uint32_t size) { Resize(size); }
  HeapVector(const HeapVector& other) : BaseVector<T>() {
    Resize(other.m_size);
    this->Assign(other);
  }
  HeapVector& operator=(const HeapVector& other) {
    if (&other != this) {
      Resize(other.m_size);
      this->Assign(other);
    }
    return *this;
  }
  ~HeapVector() override { delete[] this->m_data; }

  // Grows the storage to exactly count elements if count exceeds the size; the size becomes
  // count either way. Contents are not kept across a reallocation.
  void Resize(uint32_t count) {
    if (count > this->m_size) {
      delete[] this->m_data;
      this->m_data = nullptr;
      // Zero-filled, so that bytes no one writes never carry old heap contents into a stream.
      this->m_data = new T[count]();
    }
    this->m_size = count;
  }
};

#endif  // ORVANE_VEXL_BASE_VECTOR_H_
