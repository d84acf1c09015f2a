// A signing hook for tests only: the "signature" is the 32-bit FNV-1a digest of everything fed
// to it, big-endian. Each answer can be forced to reach every branch of the reader and writer.
#ifndef ORVANE_TESTS_SIGNATURE_TOYHOOK_H_
#define ORVANE_TESTS_SIGNATURE_TOYHOOK_H_

#include <cstring>
#include <string>
#include <vector>

#include "signature/CSignatureHook.h"
#include "vexl/ByteOrder.h"

class ToyHook : public CSignatureHook {
 public:
  // The digest of data followed by key, as the hook would sign it.
  static std::string sign(const std::string& data, const std::string& key) {
    uint32_t digest = kBasis;
    feed(digest, (data + key).data(), static_cast<unsigned>(data.size() + key.size()));
    unsigned char bytes[4];
    storeBigEndian32(bytes, digest);
    return std::string(reinterpret_cast<char*>(bytes), 4);
  }

  int hasSigningKey() override { return signingKeyLoaded; }
  int hasVerificationKey() override { return verificationKeyLoaded; }
  int getEncryptionKey(const unsigned char** bytes) override {
    *bytes = reinterpret_cast<const unsigned char*>(encryptionKey.data());
    return static_cast<int>(encryptionKey.size());
  }
  int getVerificationKey(const unsigned char** bytes) override {
    *bytes = reinterpret_cast<const unsigned char*>(verificationKey.data());
    const size_t call = verificationKeyCalls++;
    return call < verificationKeyAnswers.size() ? verificationKeyAnswers[call]
                                                : static_cast<int>(verificationKey.size());
  }
  int signInit() override { return (digest = kBasis, signInitResult); }
  int signUpdate(const void* data, unsigned length) override { return feed(digest, data, length); }
  int signFinal(const unsigned char** bytes, unsigned* length) override {
    storeBigEndian32(out, digest);
    *bytes = out;
    *length = 4;
    return signFinalResult;
  }
  int verifyInit() override { return (digest = kBasis, verifyInitResult); }
  int verifyUpdate(const void* data, unsigned length) override {
    return feed(digest, data, length);
  }
  int verifyFinal(const void* signature, unsigned length) override {
    storeBigEndian32(out, digest);
    return length == 4 && std::memcmp(signature, out, 4) == 0 ? 0 : 1;
  }

  std::string encryptionKey = "key1", verificationKey = "key1";
  int signingKeyLoaded = 1, verificationKeyLoaded = 1;
  int signInitResult = 0, signFinalResult = 0, verifyInitResult = 0;
  std::vector<int> verificationKeyAnswers;  // forced lengths, one per call; then the key's
  size_t verificationKeyCalls = 0;

 private:
  static constexpr uint32_t kBasis = 0x811C9DC5u;
  static int feed(uint32_t& digest, const void* data, unsigned length) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (unsigned i = 0; i < length; ++i) digest = (digest ^ bytes[i]) * 0x01000193u;
    return 0;
  }
  uint32_t digest = kBasis;
  unsigned char out[4] = {};
};

#endif  // ORVANE_TESTS_SIGNATURE_TOYHOOK_H_
