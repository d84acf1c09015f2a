#include "tools/orvane/CStdoutToStderr.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>

CStdoutToStderr::CStdoutToStderr() : savedStdout(-1) {
  std::cout.flush();
  std::fflush(stdout);
  savedStdout = dup(STDOUT_FILENO);
  if (savedStdout >= 0) dup2(STDERR_FILENO, STDOUT_FILENO);
}

CStdoutToStderr::~CStdoutToStderr() {
  std::cout.flush();
  std::fflush(stdout);
  if (savedStdout >= 0) {
    dup2(savedStdout, STDOUT_FILENO);
    close(savedStdout);
  }
}
