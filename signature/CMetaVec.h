// CMetaVec: an ordered vector of meta frames with search, editing and the binary meta block:
//
//   "META", varint S (the sum of the frame sizes), then each frame as
//   idLength (1 byte), id, varint dataLength, data.
//
// Frames keep their order and ids may repeat. Lookups and parse failures do not throw: they print
// a line on the error stream and answer with 0, -1 or false. Only addNewFrame throws (a plain
// std::string), and no failure removes frames that are already in the vector.
//
// The readers (parse, readFrom, readOneFrame) take outside bytes: they never read past what they
// were given and never allocate more than the input holds.
#ifndef ORVANE_SIGNATURE_CMETAVEC_H_
#define ORVANE_SIGNATURE_CMETAVEC_H_

#include <cstdint>
#include <istream>
#include <ostream>
#include <vector>

#include "signature/SMetaFrame.h"

// Indices of the tag table words that the library itself writes or reads.
enum MetaTag {
  kTagTuid = 3,
  kTagCuid = 4,
  kTagDsig = 5,
  kTagTime = 11,
  kTagFeatObj = 12,
};

class CMetaVec {
 public:
  CMetaVec() = default;
  // A copy of other without the frames whose id is tagName(tagIndex).
  CMetaVec(const CMetaVec& other, int tagIndex);

  // The word of the tag table at index, or "_inv_tag_" outside 0 to 16.
  static const char* tagName(int index);

  unsigned frameCount() const { return static_cast<unsigned>(frames.size()); }
  // REQUIRES: checkIndex(index).
  const SMetaFrame& frameAt(int index) const { return frames[static_cast<size_t>(index)]; }

  // Index of the first frame whose id is length bytes and agrees with id; -1 if none.
  int findFrame(const char* id, unsigned length) const;
  // Index of the first frame from start whose id is tagName(tagIndex); -1 if none.
  int findTaggedFrame(int tagIndex, int start = 0) const;
  // The same search from start. A hit sets start to the index and length to the frame's
  // dataLength and returns its data; a miss sets start to -1 and returns null.
  const unsigned char* findFrameFrom(const char* id, unsigned& length, int& start) const;
  // True for 0 to count - 1; otherwise prints why on the error stream.
  bool checkIndex(int index) const;
  // dataLength and data of the frame, or 0 for a bad index.
  unsigned getFrameData(int index, const void*& data) const;

  void appendFrame(const SMetaFrame& frame);
  // Appends a frame with this id and a value block of dataLength bytes for the caller to fill,
  // and returns that block. Throws std::string when idLength is not 1 to 255.
  unsigned char* addNewFrame(unsigned idLength, const char* id, unsigned dataLength);
  // The same with the id tagName(tagIndex).
  unsigned char* addTaggedFrame(int tagIndex, unsigned dataLength);
  // 1 when the frame was removed (order kept), 0 for a bad index.
  int removeFrame(int index);
  // Removes every frame with this id; returns the number of frames left.
  unsigned removeAllWithId(const char* id, unsigned length);
  // Makes this vector a copy of other without the frames whose id is tagName(tagIndex); other
  // may be this vector. Returns the number of frames.
  unsigned assignExcept(const CMetaVec& other, int tagIndex);
  // Destroys the frames, keeps the storage.
  void clearFrames() { frames.clear(); }
  void reserveFrames(size_t count) { frames.reserve(count); }

  // Bytes of the meta block, 0 for an empty vector; varintBytes (if not null) gets the size of
  // the varint S.
  unsigned encodedSize(unsigned* varintBytes = nullptr) const;
  // Writes the meta block: 0, or 1 with a message for an empty vector.
  int writeTo(std::ostream& out) const;
  // The same bytes into buffer; returns their count, or 0 with a message for an empty vector.
  // REQUIRES: buffer has room for encodedSize() bytes.
  unsigned storeTo(unsigned char* buffer) const;

  // Replaces the frames by those of a meta block and returns the bytes consumed from the "M" on
  // (0 when the block does not start with "META"). A non-zero length is the block's size and
  // wins over S; a frame running past it stops the parse with an answer above length.
  // REQUIRES: with length 0 the buffer holds the whole block that S announces.
  unsigned parse(const unsigned char* buffer, unsigned length);
  // Adds frames read one by one until they add up to size bytes or more; returns their sum, or 0
  // (with a message) when a frame fails.
  unsigned readFrom(std::istream& in, unsigned size);
  // Reads and appends one frame whose id length byte counts as signed, so ids of 128 bytes or
  // more fail here. Returns the frame's size, or 0 when it failed (the failed frame stays).
  unsigned readOneFrame(std::istream& in);

 protected:
  std::vector<SMetaFrame> frames;
};

#endif  // ORVANE_SIGNATURE_CMETAVEC_H_
