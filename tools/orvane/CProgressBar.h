// CProgressBar: one line on standard error, redrawn in place, with the count done, a bar,
// the rate and the time left. Drawn only when standard error is a terminal; otherwise every
// operation does nothing, so that logs and pipes get no control characters.
#ifndef ORVANE_TOOLS_CPROGRESSBAR_H_
#define ORVANE_TOOLS_CPROGRESSBAR_H_

#include <chrono>
#include <cstddef>
#include <string>

class CProgressBar {
 public:
  explicit CProgressBar(std::size_t total);
  ~CProgressBar();

  // Redraws with done items, at most ten times a second.
  void update(std::size_t done);
  // Prints a line of its own above the bar (the bar is redrawn by the next update).
  void message(const std::string& line);
  // Removes the bar.
  void finish();

 private:
  using Clock = std::chrono::steady_clock;
  bool shown;
  bool drawn;
  std::size_t total;
  Clock::time_point start;
  Clock::time_point lastDraw;
};

#endif  // ORVANE_TOOLS_CPROGRESSBAR_H_
