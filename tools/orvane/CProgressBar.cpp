#include "tools/orvane/CProgressBar.h"

#include <unistd.h>

#include <cstdio>

namespace {

constexpr int kBarWidth = 30;
constexpr const char* kClearLine = "\r\033[K";

}  // namespace

CProgressBar::CProgressBar(std::size_t total)
    : shown(isatty(STDERR_FILENO) == 1 && total > 0),
      drawn(false),
      total(total),
      start(Clock::now()),
      lastDraw() {}

CProgressBar::~CProgressBar() { finish(); }

void CProgressBar::update(std::size_t done) {
  const Clock::time_point now = Clock::now();
  if (!shown || (drawn && done < total && now - lastDraw < std::chrono::milliseconds(100))) {
    return;
  }
  lastDraw = now;
  drawn = true;
  const double seconds = std::chrono::duration<double>(now - start).count();
  const double rate = seconds > 0 ? done / seconds : 0.0;
  const int filled = static_cast<int>(kBarWidth * done / total);
  std::string bar(filled, '#');
  bar.append(kBarWidth - filled, '.');
  std::fprintf(stderr, "%s%zu/%zu [%s] %.1f photos/s", kClearLine, done, total, bar.c_str(),
               rate);
  if (rate > 0 && done < total) {
    const long left = static_cast<long>((total - done) / rate + 0.5);
    std::fprintf(stderr, "  ETA %ld:%02ld", left / 60, left % 60);
  }
  std::fflush(stderr);
}

void CProgressBar::message(const std::string& line) {
  if (drawn) std::fputs(kClearLine, stderr);
  drawn = false;
  std::fprintf(stderr, "%s\n", line.c_str());
}

void CProgressBar::finish() {
  if (drawn) {
    std::fputs(kClearLine, stderr);
    std::fflush(stderr);
  }
  drawn = false;
}
