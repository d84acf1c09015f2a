// Hex helpers for golden byte vectors in the signature tests.
#ifndef ORVANE_TESTS_SIGNATURE_HEXBYTES_H_
#define ORVANE_TESTS_SIGNATURE_HEXBYTES_H_

#include <algorithm>
#include <cstdio>
#include <string>

// "4D 45 41" or "4d4541" to bytes; spaces are ignored.
inline std::string fromHex(std::string hex) {
  std::string bytes;
  hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
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
