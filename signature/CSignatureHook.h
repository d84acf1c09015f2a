// CSignatureHook: what a host plugs in to have signature streams signed and verified. The
// library ships no implementation and signs nothing by itself; the stream object only drives
// these operations and places or checks the bytes they answer. The digest and the public-key
// scheme are the hook's business: nothing of them shows in a stream but key and signature bytes.
//
// Signing sees the meta block, then the key; verification sees the same.
#ifndef ORVANE_SIGNATURE_CSIGNATUREHOOK_H_
#define ORVANE_SIGNATURE_CSIGNATUREHOOK_H_

class CSignatureHook {
 public:
  virtual ~CSignatureHook() = default;

  // Non-zero when a private key is loaded.
  virtual int hasSigningKey() = 0;
  // Non-zero when a public key is loaded.
  virtual int hasVerificationKey() = 0;
  // The key bytes that go into a signed stream; *bytes stays valid until the stream object has
  // copied it. Returns the length.
  virtual int getEncryptionKey(const unsigned char** bytes) = 0;
  // The key bytes that a stream's key must equal, as above.
  virtual int getVerificationKey(const unsigned char** bytes) = 0;

  // 0 on success.
  virtual int signInit() = 0;
  // May be called repeatedly; the result is not looked at.
  virtual int signUpdate(const void* data, unsigned length) = 0;
  // 0 on success; hands out the signature, valid until the stream object has copied it.
  virtual int signFinal(const unsigned char** bytes, unsigned* length) = 0;

  // 0 on success.
  virtual int verifyInit() = 0;
  // May be called repeatedly; the result is not looked at.
  virtual int verifyUpdate(const void* data, unsigned length) = 0;
  // 0 when the signature is right.
  virtual int verifyFinal(const void* signature, unsigned length) = 0;
};

#endif  // ORVANE_SIGNATURE_CSIGNATUREHOOK_H_
