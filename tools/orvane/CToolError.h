// CToolError: a failure that ends a command of the orvane tool with exit status 3 (I/O or
// library error). The text names the file concerned and says what went wrong.
#ifndef ORVANE_TOOLS_CTOOLERROR_H_
#define ORVANE_TOOLS_CTOOLERROR_H_

#include <stdexcept>
#include <string>

class CToolError : public std::runtime_error {
 public:
  // The text reads "<file>: <reason>".
  CToolError(const std::string& file, const std::string& reason)
      : std::runtime_error(file + ": " + reason) {}
};

#endif  // ORVANE_TOOLS_CTOOLERROR_H_
