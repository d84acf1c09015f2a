// Test helper: a program started without a shell, so that hostile file names pass as they
// are, with its standard output in `output` and its standard error beside it (`output`.err);
// and its end: the exit status, or -1 when it did not end by itself (killed).
#ifndef ORVANE_TESTS_SUPPORT_RUNPROGRAM_H_
#define ORVANE_TESTS_SUPPORT_RUNPROGRAM_H_

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

inline pid_t startProgram(const std::vector<std::string>& arguments, const std::string& output) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
      argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    if (freopen(output.c_str(), "w", stdout) == nullptr ||
        freopen((output + ".err").c_str(), "w", stderr) == nullptr) {
      _exit(126);
    }
    execvp(argv[0], argv.data());
    _exit(127);
  }
  return child;
}

inline int waitProgram(pid_t child, struct rusage* usage = nullptr) {
  int status = 0;
  wait4(child, &status, 0, usage);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline int runProgram(const std::vector<std::string>& arguments, const std::string& output) {
  return waitProgram(startProgram(arguments, output));
}

#endif  // ORVANE_TESTS_SUPPORT_RUNPROGRAM_H_
