// VEXLException: the one failure of the numeric library. It carries the message, the
// fixed source text of the failing unit (e.g. "vexl/heap_matrix") and a line number;
// all three are part of the failure's identity and are fixed texts, not __FILE__/__LINE__.
#ifndef ORVANE_VEXL_VEXLEXCEPTION_H_
#define ORVANE_VEXL_VEXLEXCEPTION_H_

#include <exception>
#include <string>

class VEXLException : public std::exception {
 public:
  VEXLException(std::string message, std::string file, int line);
  ~VEXLException() override;

  // The message only; file and line are kept for whoever catches it.
  const char* what() const noexcept override;

  std::string m_message;
  std::string m_file;
  int m_line;
};

#endif  // ORVANE_VEXL_VEXLEXCEPTION_H_
