// Hex helpers for golden byte vectors in the signature tests.
#ifndef ORVANE_TESTS_SIGNATURE_HEXBYTES_H_
#define ORVANE_TESTS_SIGNATURE_HEXBYTES_H_

#include <cctype>
#include <cstdio>
#include <string>

// "4D 45 41" or "4d4541" to bytes; spaces are ignored.
inline std::string fromHex(const std::string& hex) {
  std::string bytes;
  std::string pair;
  for (char c : hex) {
    if (std::isspace(static_cast<unsigned char>(c))) continue;
    pair += c;
    if (pair.size() == 2) {
      bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
      pair.clear();
    }
  }
  return bytes;
}

inline std::string toHex(const std::string& bytes) {
  std::string hex;
  char buffer[3];
  for (unsigned char c : bytes) {
    std::snprintf(buffer, sizeof buffer, "%02X", c);
    hex += buffer;
  }
  return hex;
}

#endif  // ORVANE_TESTS_SIGNATURE_HEXBYTES_H_
