// Test helper: the text of the plain string a call throws, the way the database reports.
#ifndef ORVANE_TESTS_DATABASE_STRINGTHROWN_H_
#define ORVANE_TESTS_DATABASE_STRINGTHROWN_H_

#include <string>

template <typename Call>
std::string stringThrown(Call call) {
  try {
    call();
  } catch (const std::string& e) {
    return e;
  }
  return "(nothing thrown)";
}

#endif  // ORVANE_TESTS_DATABASE_STRINGTHROWN_H_
