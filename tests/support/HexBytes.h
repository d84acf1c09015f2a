// Golden byte vectors for tests, written as hex: "33 00 00 00 04" or "3300000004", and
// printed back as "33 00 00 00 04".
#ifndef ORVANE_TESTS_SUPPORT_HEXBYTES_H_
#define ORVANE_TESTS_SUPPORT_HEXBYTES_H_

#include <cctype>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

inline Bytes hexBytes(const std::string& hex) {
  std::vector<unsigned char> bytes;
  std::string digits;
  for (char c : hex) {
    if (std::isxdigit(static_cast<unsigned char>(c))) digits += c;
  }
  if (digits.size() % 2 != 0) throw std::invalid_argument("odd number of hex digits");
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

// The same bytes held in a string, as streams hold them.
inline std::string hexString(const std::string& hex) {
  const Bytes bytes = hexBytes(hex);
  return std::string(bytes.begin(), bytes.end());
}

inline std::string hexText(const unsigned char* bytes, std::size_t count) {
  std::string text;
  char pair[4];
  for (std::size_t i = 0; i < count; ++i) {
    std::snprintf(pair, sizeof pair, i == 0 ? "%02X" : " %02X", bytes[i]);
    text += pair;
  }
  return text;
}

inline std::string hexText(const std::vector<unsigned char>& bytes) {
  return hexText(bytes.data(), bytes.size());
}

inline std::string hexText(const std::string& bytes) {
  return hexText(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

inline Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// The text as bytes, without a terminating zero.
inline Bytes textBytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

#endif  // ORVANE_TESTS_SUPPORT_HEXBYTES_H_
