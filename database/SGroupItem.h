// One stored signature in one feature group: its position and identifier. Its group vector
// lies at the same position in the group's CVectorBlocks, ready to compare (means appended,
// normalised).
#ifndef ORVANE_DATABASE_SGROUPITEM_H_
#define ORVANE_DATABASE_SGROUPITEM_H_

#include <cstdint>

struct SGroupItem {
  SGroupItem() = default;
  SGroupItem(uint32_t index, uint32_t idLow, uint32_t idHigh, uint32_t tag)
      : index(index), idLow(idLow), idHigh(idHigh), tag(tag) {}

  uint32_t index = 0;     // its own position in the group's items
  uint32_t reserved = 0;  // never assigned or read
  uint32_t idLow = 0;
  uint32_t idHigh = 0;
  uint32_t tag = 0;  // the caller's word, stored and persisted only
};

#endif  // ORVANE_DATABASE_SGROUPITEM_H_
