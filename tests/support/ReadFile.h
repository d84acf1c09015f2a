// The whole content of a file as bytes; empty when it cannot be read.
#ifndef ORVANE_TESTS_SUPPORT_READFILE_H_
#define ORVANE_TESTS_SUPPORT_READFILE_H_

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

#endif  // ORVANE_TESTS_SUPPORT_READFILE_H_
