// Golden byte vectors for tests, written as hex: "33 00 00 00 04" or "3300000004".
#ifndef ORVANE_TESTS_SUPPORT_HEXBYTES_H_
#define ORVANE_TESTS_SUPPORT_HEXBYTES_H_

#include <cctype>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

inline std::vector<unsigned char> hexBytes(const std::string& hex) {
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

#endif  // ORVANE_TESTS_SUPPORT_HEXBYTES_H_
