#include "database/CGroupItems.h"

#include <algorithm>
#include <new>
#include <type_traits>
#include <utility>

// Chunks are raw memory that items are copied into: nothing to construct or destroy.
static_assert(std::is_trivially_copyable<SGroupItem>::value &&
                  std::is_trivially_destructible<SGroupItem>::value,
              "items are copied into raw chunks");

void CGroupItems::SChunkFree::operator()(SGroupItem* p) const { ::operator delete(p); }

CGroupItems::CGroupItems(const CGroupItems& other) {
  provide(other.count);
  for (size_t start = 0; start < other.count; start += kChunkItems) {
    const size_t n = std::min(kChunkItems, other.count - start);
    std::copy_n(other.chunks[start / kChunkItems].get(), n, chunks[start / kChunkItems].get());
  }
  count = other.count;
}

CGroupItems& CGroupItems::operator=(const CGroupItems& other) {
  if (this != &other) *this = CGroupItems(other);
  return *this;
}

void CGroupItems::reserve(size_t items) {
  chunks.reserve((items + kChunkItems - 1) / kChunkItems);
}

void CGroupItems::provide(size_t items) {
  while (chunks.size() * kChunkItems < items) {
    std::unique_ptr<SGroupItem, SChunkFree> chunk(
        static_cast<SGroupItem*>(::operator new(kChunkItems * sizeof(SGroupItem))));
    chunks.push_back(std::move(chunk));
  }
}

void CGroupItems::push_back(const SGroupItem& item) {
  provide(count + 1);
  new (&(*this)[count]) SGroupItem(item);
  ++count;
}

void CGroupItems::clear() {
  chunks.clear();
  count = 0;
}
