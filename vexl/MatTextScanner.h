// MatTextScanner: the cursor over the text form of a MAT stream. It scans a copy of exactly
// the given bytes with a zero behind them, so that no scan can run past the caller's buffer
// even when the text has no terminating zero of its own; the text ends at its first zero.
// Scanning is linear in the text length: a run of blanks or a long number is looked at once
// however many scans start inside it.
#ifndef ORVANE_VEXL_MATTEXTSCANNER_H_
#define ORVANE_VEXL_MATTEXTSCANNER_H_

#include <cstddef>
#include <cstdint>
#include <string>

class MatTextScanner {
 public:
  // The cursor starts at offset start.
  // REQUIRES: start <= size.
  MatTextScanner(const unsigned char* buffer, uint32_t size, uint32_t start);

  // Scans a decimal count as "%d" does and moves behind the next line feed. False if there is
  // no number, if it is negative or wider than a 32-bit int, or if no line feed follows.
  bool ReadCount(uint32_t* count);

  // Scans one float as "%f" does, leading white space skipped; the cursor does not move.
  bool ScanValue(float* value);

  // Moves behind the next separator at or after the cursor, or to the end of the text.
  void SkipPast(char separator);

  uint32_t Position() const { return static_cast<uint32_t>(m_pos); }
  // Bytes from the cursor to the end of the given buffer.
  uint32_t Remaining() const { return static_cast<uint32_t>(m_text.size() - m_pos); }

 private:
  size_t SkipSpace();

  std::string m_text;
  size_t m_pos;
  // [m_spaceFrom, m_spaceTo) is white space known to end at m_spaceTo.
  size_t m_spaceFrom;
  size_t m_spaceTo;
  // The last value scanned, at offset m_valueAt, or npos.
  size_t m_valueAt;
  bool m_valueOk;
  float m_value;
};

#endif  // ORVANE_VEXL_MATTEXTSCANNER_H_
