// A signing hook for tests only: the "signature" is the 32-bit FNV-1a digest of everything fed
// to it, big-endian. Each operation's answer can be forced so that every branch of the stream
// reader and writer can be reached.
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
    feed(digest, data.data(), static_cast<unsigned>(data.size()));
    feed(digest, key.data(), static_cast<unsigned>(key.size()));
    unsigned char bytes[4];
    storeBigEndian32(bytes, digest);
    return std::string(reinterpret_cast<char*>(bytes), 4);
  }

  int hasSigningKey() override { return signingKeyLoaded; }
  int hasVerificationKey() override { return verificationKeyLoaded; }
  int getEncryptionKey(const unsigned char** bytes) override {
    ++encryptionKeyCalls;
    *bytes = reinterpret_cast<const unsigned char*>(encryptionKey.data());
    return static_cast<int>(encryptionKey.size());
  }
  int getVerificationKey(const unsigned char** bytes) override {
    *bytes = reinterpret_cast<const unsigned char*>(verificationKey.data());
    const size_t call = verificationKeyCalls++;
    return call < verificationKeyAnswers.size() ? verificationKeyAnswers[call]
                                                : static_cast<int>(verificationKey.size());
  }
  int signInit() override {
    digest = kBasis;
    return signInitResult;
  }
  int signUpdate(const void* data, unsigned length) override {
    feed(digest, data, length);
    return 0;
  }
  int signFinal(const unsigned char** bytes, unsigned* length) override {
    storeBigEndian32(out, digest);
    *bytes = out;
    *length = 4;
    return signFinalResult;
  }
  int verifyInit() override {
    digest = kBasis;
    return verifyInitResult;
  }
  int verifyUpdate(const void* data, unsigned length) override {
    feed(digest, data, length);
    return 0;
  }
  int verifyFinal(const void* signature, unsigned length) override {
    storeBigEndian32(out, digest);
    return length == 4 && std::memcmp(signature, out, 4) == 0 ? 0 : 1;
  }

  std::string encryptionKey = "key1";
  std::string verificationKey = "key1";
  int signingKeyLoaded = 1;
  int verificationKeyLoaded = 1;
  int signInitResult = 0;
  int signFinalResult = 0;
  int verifyInitResult = 0;
  // Forced answers of getVerificationKey, one per call; the key's length after them.
  std::vector<int> verificationKeyAnswers;
  size_t verificationKeyCalls = 0;
  int encryptionKeyCalls = 0;

 private:
  static constexpr uint32_t kBasis = 0x811C9DC5u;
  static void feed(uint32_t& digest, const void* data, unsigned length) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (unsigned i = 0; i < length; ++i) digest = (digest ^ bytes[i]) * 0x01000193u;
  }

  uint32_t digest = kBasis;
  unsigned char out[4] = {};
};

#endif  // ORVANE_TESTS_SIGNATURE_TOYHOOK_H_
