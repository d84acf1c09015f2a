// CGroupItems: the items of one feature group, by position.
//
// Items go in chunks of kChunkItems that never move, taken as items reach them. Appending
// costs the same at any size of the list: a list in one piece would copy itself whole into
// fresh memory each time it outgrew its room, which at a million items stalls one add for
// tens of milliseconds. The room of a chunk that no item reaches yet is never written, so
// it takes no memory.
#ifndef ORVANE_DATABASE_CGROUPITEMS_H_
#define ORVANE_DATABASE_CGROUPITEMS_H_

#include <cstddef>
#include <memory>
#include <vector>

#include "database/SGroupItem.h"

class CGroupItems {
 public:
  static constexpr size_t kChunkItems = size_t{1} << 16;

  CGroupItems() = default;
  // Copies hold their own chunks, of the items only.
  CGroupItems(const CGroupItems& other);
  CGroupItems& operator=(const CGroupItems& other);
  CGroupItems(CGroupItems&&) noexcept = default;
  CGroupItems& operator=(CGroupItems&&) noexcept = default;

  size_t size() const { return count; }
  bool empty() const { return count == 0; }
  // Items that fit before the list of chunks itself has to grow.
  size_t capacity() const { return chunks.capacity() * kChunkItems; }
  // Makes capacity() at least `items`; takes no chunk.
  void reserve(size_t items);

  // REQUIRES: position < size().
  SGroupItem& operator[](size_t position) {
    return chunks[position / kChunkItems].get()[position % kChunkItems];
  }
  const SGroupItem& operator[](size_t position) const {
    return chunks[position / kChunkItems].get()[position % kChunkItems];
  }
  // REQUIRES: size() > 0.
  const SGroupItem& back() const { return (*this)[count - 1]; }

  void push_back(const SGroupItem& item);
  // REQUIRES: size() > 0.
  void pop_back() { --count; }
  // Drops every item and releases the memory.
  void clear();

 private:
  struct SChunkFree {
    void operator()(SGroupItem* p) const;
  };

  // Takes chunks until `items` items fit.
  void provide(size_t items);

  std::vector<std::unique_ptr<SGroupItem, SChunkFree>> chunks;
  size_t count = 0;
};

#endif  // ORVANE_DATABASE_CGROUPITEMS_H_
