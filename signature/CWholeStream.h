// CWholeStream: the frames of a signature on their way to or from a byte stream, with the
// stream's signing data beside them. The writer always produces the current form:
//
//   "ORVF", u32 version 5, varint totalSize, varint headerSize,
//   [headerSize bytes: '1', varint K, K key bytes, varint G, G signature bytes],
//   meta block (see CMetaVec).
//
// The reader accepts that form with version word 5 or 64, refuses 6 to 63, and hands any other
// word over to readOlderForm. Every failure is a plain std::string thrown by value with one of
// the texts of SignatureMessages.h. The reader never reads past the stream's end into its
// buffers and never allocates more than the stream holds.
//
// Signing and verification go through a CSignatureHook, never owned; without one a stream is
// written unsigned, and a signed stream is read up to its header only.
#ifndef ORVANE_SIGNATURE_CWHOLESTREAM_H_
#define ORVANE_SIGNATURE_CWHOLESTREAM_H_

#include <istream>
#include <ostream>
#include <vector>

#include "signature/CMetaVec.h"
#include "signature/CSignatureHook.h"

class CChunkContainer;

class CWholeStream : public CMetaVec {
 public:
  // An empty object for writing: no frames, no hook, streamVersion -1.
  CWholeStream() = default;
  // Reads a whole stream from in; a failure leaves by exception.
  CWholeStream(std::istream& in, CSignatureHook* hook);
  CWholeStream(const CWholeStream&) = delete;
  CWholeStream& operator=(const CWholeStream&) = delete;

  // Stores hook and takes a copy of its encryption key.
  // REQUIRES: hook is not null.
  void setHook(CSignatureHook* hook);

  // Both answer 0; failures are thrown.
  int readStream(std::istream& in);
  int writeStream(std::ostream& out);

  // Reads a stream of the older chunk form, positioned at its "ORVF", into the frames of the
  // current form; a stream it cannot parse fails with "cannot parse wholestream!".
  int readOlderForm(std::istream& in);
  // Replaces the frames by those the chunk reader found, then appends "FeatObj" (the one
  // feature, for a float or byte matrix), "Tuid" and "Cuid", and drops the first "dsig".
  int convertChunks(CChunkContainer& chunks);

  int getStreamVersion() const { return streamVersion; }
  unsigned char getKeyKind() const { return keyKind; }
  const std::vector<unsigned char>& getKey() const { return key; }
  const std::vector<unsigned char>& getSignature() const { return signature; }

 private:
  // Replaces key by a copy of the hook's encryption key.
  void takeEncryptionKey();
  // Signed stream with a hook: checks the key and the signature, then parses the frames.
  int verifyAndParse(std::istream& in, uint32_t totalSize, uint32_t headerSize);

  CSignatureHook* hook = nullptr;
  unsigned char keyKind = 0;
  std::vector<unsigned char> key;        // keyLength is its size
  std::vector<unsigned char> signature;  // signatureLength is its size
  int streamVersion = -1;
};

#endif  // ORVANE_SIGNATURE_CWHOLESTREAM_H_
