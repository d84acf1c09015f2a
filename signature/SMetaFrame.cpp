#include "signature/SMetaFrame.h"

#include <cstring>

#include "signature/StreamPrimitives.h"

SMetaFrame::SMetaFrame(uint32_t idLength, uint32_t dataLength, const char* id, const void* data) {
  set(idLength, dataLength, id, data);
}

SMetaFrame::SMetaFrame(uint32_t idLength, std::istream& in) : idLength(idLength) {
  bool complete = readBounded(in, idLength, id);
  id.push_back('\0');
  dataLength = getVarint(in);
  // A value length cut by the end of the stream counts as a short read too.
  complete = complete && !in.fail();
  complete = readBounded(in, dataLength, data) && complete;
  data.push_back(0);
  if (!complete) {
    this->idLength = 0;
    dataLength = static_cast<uint32_t>(data.size() - 1);
  }
}

unsigned char* SMetaFrame::set(uint32_t newIdLength, uint32_t newDataLength, const char* newId,
                               const void* newData) {
  idLength = newIdLength;
  dataLength = newDataLength;
  id.assign(size_t{idLength} + 1, '\0');
  data.assign(size_t{dataLength} + 1, 0);
  if (newId && idLength) std::memcpy(id.data(), newId, idLength);
  if (newData && dataLength) std::memcpy(data.data(), newData, dataLength);
  return data.data();
}

bool SMetaFrame::hasId(const char* other, uint32_t length) const {
  return idLength == length && (length == 0 || std::strncmp(id.data(), other, length) == 0);
}

uint32_t SMetaFrame::encodedSize() const {
  return 1 + idLength + varintSize(dataLength) + dataLength;
}
