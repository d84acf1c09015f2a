#include "vexl/MatTextScanner.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

MatTextScanner::MatTextScanner(const unsigned char* buffer, uint32_t size, uint32_t start)
    : m_text(reinterpret_cast<const char*>(buffer), size),
      m_pos(start),
      m_spaceFrom(0),
      m_spaceTo(0),
      m_valueAt(std::string::npos),
      m_valueOk(false),
      m_value(0.0f) {}

bool MatTextScanner::ReadCount(uint32_t* count) {
  const char* begin = m_text.c_str() + m_pos;
  char* after = nullptr;
  errno = 0;
  const long value = std::strtol(begin, &after, 10);
  // Negative counts are refused: a matrix cannot have them.
  if (after == begin || errno == ERANGE || value < 0 || value > INT_MAX) return false;
  const char* lineFeed = std::strchr(begin, '\n');
  if (lineFeed == nullptr) return false;
  *count = static_cast<uint32_t>(value);
  m_pos = static_cast<size_t>(lineFeed + 1 - m_text.c_str());
  return true;
}

size_t MatTextScanner::SkipSpace() {
  if (m_pos >= m_spaceFrom && m_pos <= m_spaceTo) return m_spaceTo;
  size_t p = m_pos;
  while (p < m_text.size() && std::isspace(static_cast<unsigned char>(m_text[p]))) ++p;
  m_spaceFrom = m_pos;
  m_spaceTo = p;
  return p;
}

bool MatTextScanner::ScanValue(float* value) {
  const size_t at = SkipSpace();
  if (at != m_valueAt) {
    const char* begin = m_text.c_str() + at;
    char* after = nullptr;
    m_value = std::strtof(begin, &after);
    m_valueOk = after != begin;
    m_valueAt = at;
  }
  if (m_valueOk) *value = m_value;
  return m_valueOk;
}

void MatTextScanner::SkipPast(char separator) {
  const char* begin = m_text.c_str() + m_pos;
  const char* found = std::strchr(begin, separator);
  m_pos = found != nullptr ? static_cast<size_t>(found + 1 - m_text.c_str())
                           : m_pos + std::strlen(begin);
}
