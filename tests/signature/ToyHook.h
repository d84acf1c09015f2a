// A signing hook for tests only: the "signature" is the 32-bit FNV-1a digest of everything fed
// to it, big-endian. Its keys can be changed to reach the branches of the reader and writer.
#ifndef ORVANE_TESTS_SIGNATURE_TOYHOOK_H_
#define ORVANE_TESTS_SIGNATURE_TOYHOOK_H_

#include <string>

#include "signature/CSignatureHook.h"
#include "vexl/ByteOrder.h"

class ToyHook : public CSignatureHook {
 public:
  // The digest of data followed by key, as the hook would sign it.
  static std::string sign(const std::string& data, const std::string& key) {
    ToyHook hook;
    hook.feed((data + key).data(), static_cast<unsigned>(data.size() + key.size()));
    return hook.digestBytes();
  }
  int hasSigningKey() override { return signingKeyLoaded; }
  int hasVerificationKey() override { return verificationKeyLoaded; }
  int getEncryptionKey(const unsigned char** bytes) override { return give(encryptionKey, bytes); }
  int getVerificationKey(const unsigned char** bytes) override {
    return give(verificationKey, bytes);
  }
  int signInit() override { return verifyInit(); }
  int signUpdate(const void* data, unsigned n) override { return feed(data, n); }
  int signFinal(const unsigned char** bytes, unsigned* length) override {
    *length = static_cast<unsigned>(give(out = digestBytes(), bytes));
    return 0;
  }
  int verifyInit() override {
    digest = kBasis;
    return 0;
  }
  int verifyUpdate(const void* data, unsigned n) override { return feed(data, n); }
  int verifyFinal(const void* signature, unsigned n) override {
    return std::string(static_cast<const char*>(signature), n) == digestBytes() ? 0 : 1;
  }

  std::string encryptionKey = "key1", verificationKey = "key1";
  int signingKeyLoaded = 1, verificationKeyLoaded = 1;

 private:
  static int give(const std::string& bytes, const unsigned char** out) {
    *out = reinterpret_cast<const unsigned char*>(bytes.data());
    return static_cast<int>(bytes.size());
  }
  int feed(const void* data, unsigned n) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (unsigned i = 0; i < n; ++i) digest = (digest ^ bytes[i]) * 0x01000193u;
    return 0;
  }
  std::string digestBytes() const {
    std::string bytes(4, '\0');
    storeBigEndian32(reinterpret_cast<unsigned char*>(&bytes[0]), digest);
    return bytes;
  }
  static constexpr uint32_t kBasis = 0x811C9DC5u;
  uint32_t digest = kBasis;
  std::string out;
};

#endif  // ORVANE_TESTS_SIGNATURE_TOYHOOK_H_
