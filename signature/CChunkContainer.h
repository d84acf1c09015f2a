// CChunkContainer: reader of the older chunk form of the signature stream. It takes an
// outer "ORVF" chunk whose body holds typed sub chunks ("VERS", "INFO", "TUID", "FPAR",
// "FEAT"), then the top-level "META" and ID3 chunks behind it, and keeps what it found for
// CWholeStream to turn into frames of the current form. A "dsig" frame is checked through
// a CSignatureHook when one is given. Nothing writes this form.
//
// The reader never reads beyond its stream, allocates only as many bytes as the stream
// really delivers whatever a length field claims, and always ends: a body cut short by
// the end of the stream is a format failure. Failures print a line on the error stream
// and answer with a code; the one exception is the integer -1 thrown for a second "FPAR".
#ifndef ORVANE_SIGNATURE_CCHUNKCONTAINER_H_
#define ORVANE_SIGNATURE_CCHUNKCONTAINER_H_

#include <cstdint>
#include <istream>
#include <memory>
#include <string>
#include <vector>

#include "signature/CMetaVec.h"

class CSignatureHook;

// The band edges in Hz and the temporal resolution of an older stream ("FPAR").
struct FeatPara {
  float lf;
  float uf;
  int32_t sr;
};

// One "FEAT" sub chunk: its number counting from 1, its byte count and its bytes.
struct SFeatChunk {
  int32_t index;
  int32_t length;
  std::vector<unsigned char> data;
};

// The three 7-bit groups of the low 24 bits of `word`, packed; the top byte is ignored.
uint32_t syncsafe21(uint32_t word);

class CChunkContainer : public CMetaVec {
 public:
  // Result bits of parseStream.
  static constexpr int kBitOuter = 1;
  static constexpr int kBitMeta = 2;
  static constexpr int kBitId3 = 4;
  static constexpr int kBitForeignKey = 8;
  // Negative results of parseStream.
  static constexpr int kFailFormat = -1;
  static constexpr int kFailSignature = -2;
  static constexpr int kFailSignatureFrame = -3;

  // A non-null `versionText` must then agree with every "VERS" of a stream.
  CChunkContainer(int mode, const char* versionText, CSignatureHook* hook);
  ~CChunkContainer();

  // Reads the outer chunk and the top-level chunks behind it. Answers a set of the bits
  // above, 0 for a refused stream version, or one of the negative codes.
  int parseStream(std::istream& in);

  // Reads sub chunks of the outer body until `size` bytes are read; with `all` 0 it stops
  // behind the first "FEAT". 1 on success, -1 on failure. Throws int -1 on a second "FPAR".
  int parseSubChunks(std::istream& in, int size, int all);

  // The outer body's size as this object would hold it in the varint form.
  uint32_t bodySize() const;

  // Refuses 0 with a message and -1; otherwise stores it and answers 1.
  int setTuid(uint64_t value);
  uint64_t getTuid() const { return tuid; }

  const char* getVersionText() const { return versionText.c_str(); }
  // "NO_INFO" when the stream had no info text.
  const char* getInfoText() const;
  // The decimal numbers behind the first "F" and the first "C" of the version text.
  double featureId() const;
  double contentId() const;
  // Null before a stream was read.
  const FeatPara* getFeaturePara() const { return featPara.get(); }
  int getStreamVersion() const { return streamVersion; }
  int getMode() const { return mode; }
  // The last ID3 tag seen, header included; kept for callers, the reader ignores it.
  const std::vector<unsigned char>& getId3Tag() const { return id3Tag; }
  uint32_t getId3TagSize() const { return id3TagSize; }

  int subChunkCount() const { return static_cast<int>(chunks.size()); }
  // A bad `i` prints a message; the first two then answer -1, the third null.
  int subChunkIndex(int i) const;
  int subChunkLength(int i) const;
  const unsigned char* subChunkData(int i) const;

  // Appends `length` bytes of `in` as chunk number `index`; `clearFirst` drops all chunks
  // first. 1 on success (also for length 0 or a null stream), 0 when `in` ends early.
  int addSubChunk(uint32_t length, std::istream* in, int index, int clearFirst);

 private:
  bool checkSubscript(int i) const;
  bool readLength(std::istream& in, uint32_t& length, int64_t& pos) const;
  bool readPad(std::istream& in, uint32_t length, int64_t& pos) const;
  bool parseId3Tag(std::istream& in, const unsigned char id[4], uint32_t& pos);
  int verifySignatureFrame();

  int mode;
  CSignatureHook* hook;
  std::vector<unsigned char> id3Tag;
  uint32_t id3TagSize;
  uint32_t infoLength;
  std::string infoText;
  uint32_t versionLength;
  std::string versionText;
  uint64_t tuid;
  int32_t streamVersion;
  std::vector<unsigned char> key;
  int32_t chunkSize;
  std::vector<SFeatChunk> chunks;
  std::unique_ptr<FeatPara> featPara;
};

#endif  // ORVANE_SIGNATURE_CCHUNKCONTAINER_H_
