// Element traits of the numeric library: for each element type the bytes per element in a
// MAT stream, the type word written and the type words accepted on reading, the big-endian
// element codec and the conversion of a scanned text value. Only float, unsigned char and
// unsigned int are instantiated.
#ifndef ORVANE_VEXL_TYPE_INFO_H_
#define ORVANE_VEXL_TYPE_INFO_H_

#include <cstdint>
#include <cstring>
#include <string>

#include "vexl/ByteOrder.h"
#include "vexl/Truncate.h"
#include "vexl/VEXLFailures.h"

template <typename T>
struct TypeInfo;

template <>
struct TypeInfo<float> {
  static constexpr uint32_t kElementBytes = 4;
  // The 4 bytes written at offset 4 of a MAT stream.
  static constexpr char kStreamWord[4] = {'f', 'l', 't', '\0'};

  // The process-wide type word that names this element type in streams and factories.
  static const std::string& TypeName() {
    static const std::string name("flt");
    return name;
  }
  // REQUIRES: word has 4 readable bytes.
  static void CheckStreamWord(const unsigned char* word) {
    if (std::memcmp(word, "flt", 3) != 0 && std::memcmp(word, "fil", 3) != 0) {
      ThrowVEXL(kUnsupportedConversionFloat);
    }
  }
  static float Load(const unsigned char* p) { return floatFromBits(loadBigEndian32(p)); }
  static void Store(unsigned char* p, float v) { storeBigEndian32(p, floatBits(v)); }
  static float FromScanned(float v) { return v; }
};

template <>
struct TypeInfo<unsigned char> {
  static constexpr uint32_t kElementBytes = 1;
  static constexpr char kStreamWord[4] = {'u', 'c', 'h', 'r'};

  static const std::string& TypeName() {
    static const std::string name("uchr");
    return name;
  }
  static void CheckStreamWord(const unsigned char* word) {
    if (std::memcmp(word, "uchr", 4) != 0 && std::memcmp(word, "char", 4) != 0) {
      ThrowVEXL(kUnsupportedConversionByte);
    }
  }
  static unsigned char Load(const unsigned char* p) { return *p; }
  static void Store(unsigned char* p, unsigned char v) { *p = v; }
  // Truncated toward zero; out-of-range values keep the low byte instead of being undefined.
  static unsigned char FromScanned(float v) {
    return static_cast<unsigned char>(TruncateToInt64(v));
  }
};

template <>
struct TypeInfo<unsigned int> {
  static constexpr uint32_t kElementBytes = 4;
  static constexpr char kStreamWord[4] = {'u', 'i', 'n', 't'};

  static const std::string& TypeName() {
    static const std::string name("uint");
    return name;
  }
  // "int" is compared on 3 bytes, so any fourth byte passes; "uint" on all 4.
  static void CheckStreamWord(const unsigned char* word) {
    if (std::memcmp(word, "int", 3) != 0 && std::memcmp(word, "uint", 4) != 0) {
      ThrowVEXL(kUnsupportedConversionUint);
    }
  }
  static unsigned int Load(const unsigned char* p) { return loadBigEndian32(p); }
  static void Store(unsigned char* p, unsigned int v) { storeBigEndian32(p, v); }
  // Truncated toward zero; out-of-range values keep the low 32 bits instead of being undefined.
  static unsigned int FromScanned(float v) {
    return static_cast<unsigned int>(TruncateToInt64(v));
  }
};

#endif  // ORVANE_VEXL_TYPE_INFO_H_
