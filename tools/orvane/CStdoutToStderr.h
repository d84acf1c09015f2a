// CStdoutToStderr: sends standard output to standard error for its lifetime.
//
// The orvane library writes a few diagnostics (a photo it cannot resize, for one) to
// standard output. The tool keeps standard output for its answers, which must stay
// parseable (--json), so the library works under one of these.
#ifndef ORVANE_TOOLS_CSTDOUTTOSTDERR_H_
#define ORVANE_TOOLS_CSTDOUTTOSTDERR_H_

class CStdoutToStderr {
 public:
  CStdoutToStderr();
  ~CStdoutToStderr();
  CStdoutToStderr(const CStdoutToStderr&) = delete;
  CStdoutToStderr& operator=(const CStdoutToStderr&) = delete;

 private:
  int savedStdout;
};

#endif  // ORVANE_TOOLS_CSTDOUTTOSTDERR_H_
