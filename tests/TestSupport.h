// Helpers shared by the test programs: golden bytes written as hex, and checks of the three
// values of a VEXLException.
#ifndef ORVANE_TESTS_TESTSUPPORT_H_
#define ORVANE_TESTS_TESTSUPPORT_H_

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "vexl/VEXLException.h"

using Bytes = std::vector<unsigned char>;

// "4d 41 54" -> {0x4d, 0x41, 0x54}; blanks are ignored.
inline Bytes Hex(const std::string& text) {
  Bytes bytes;
  std::string digits;
  for (char c : text) {
    if (std::isxdigit(static_cast<unsigned char>(c))) digits += c;
  }
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

inline std::string ToHex(const Bytes& bytes) {
  std::string text;
  char pair[3];
  for (unsigned char b : bytes) {
    std::snprintf(pair, sizeof pair, "%02x", b);
    text += pair;
  }
  return text;
}

inline Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// The text as bytes, without a terminating zero.
inline Bytes Text(const std::string& text) { return Bytes(text.begin(), text.end()); }

// Runs f and expects a VEXLException with exactly these three values.
template <typename F>
void ExpectVEXL(F f, const std::string& message, const std::string& file, int line) {
  try {
    f();
    ADD_FAILURE() << "no VEXLException, expected \"" << message << "\"";
  } catch (const VEXLException& e) {
    EXPECT_EQ(e.m_message, message);
    EXPECT_EQ(e.m_file, file);
    EXPECT_EQ(e.m_line, line);
    EXPECT_EQ(std::string(e.what()), message);
  }
}

#endif  // ORVANE_TESTS_TESTSUPPORT_H_
